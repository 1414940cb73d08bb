// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <memory>

namespace zelk::sim {

// What a task runs on. Exactly one of those of a carrier runs at a time.
class CStrand {
 public:
  virtual ~CStrand() = default;
};

// Makes strands and hands the processor from one to the next. The thread that made the carrier is a strand of its own.
class CCarrier {
 public:
  virtual ~CCarrier() = default;
  // The strand that runs body, which must end by a SwitchForGood, once it is first switched to. Null when the system
  // gives none.
  virtual std::unique_ptr<CStrand> Make(std::function<void()> body) = 0;
  virtual CStrand& Home() = 0;
  // Returns when somebody switches back.
  virtual void Switch(CStrand& from, CStrand& to) = 0;
  // The same for a strand that has nothing left to do: the next thing that its body does is to return.
  virtual void SwitchForGood(CStrand& from, CStrand& to) = 0;
  // A strand that will never be switched to again, somewhere inside its body: what stands on its stack is not
  // destroyed.
  virtual void Abandon(std::unique_ptr<CStrand> strand) = 0;
};

// Stacks of our own in one thread: a switch takes some ten nanoseconds.
std::unique_ptr<CCarrier> MakeFiberCarrier();
// Threads of the system that hand over a baton, for sanitizers, debuggers and profilers, which know threads. What one
// did before it handed over is seen by the next: the thread sanitizer finds no races between tasks.
std::unique_ptr<CCarrier> MakeThreadCarrier();

}  // namespace zelk::sim
