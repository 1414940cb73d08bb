// SPDX-License-Identifier: GPL-2.0-only

// A world in one process: the library's code over a scheduler, a clock, a network and files that come from one seed.
//
//   tasks        threads of the library and of the application: CThread, or Start below. One runs at a time, and
//   another
//                one may go on wherever a task calls platform/.
//   acts         what happens outside (cards, exchanges, the test's driver): functions given to At and After, and the
//                handlers of network.h. They run between tasks, take no time and must not block.
//
//   CWorld world({.seed = 7});
//   world.Network().OpenDatagrams(...);                 // the outside may be built before the run
//   world.After(2 * kUsPerSecond, [&] { ... });
//   const SOutcome outcome = world.Run([&] { ZELK_Init(); ... SleepMs(600'000); ZELK_Shutdown(); });
//   EXPECT_EQ(EVerdict::kEnded, outcome.verdict) << outcome.report;
//
// Two runs of one seed do the same, and outcome.hash says so: it is the trace of every step, message and file action.
// For that the test must draw its numbers from Random() too, read no other clock, and keep no order by address.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/simulated/options.h"
#include "platform/simulated/random.h"
#include "platform/simulated/tasks/scheduler.h"

namespace zelk::sim {

class CFiles;
class CNetwork;

struct SOutcome {
  EVerdict verdict;
  std::string report;  // of another verdict than kEnded: why, and what every task waits for, with its stack
  uint64_t hash;
  uint64_t steps;
  uint64_t switches;
  int64_t nowUs;
};

// What the n-th call of a kind, from now on, does not get; 1 is the next, 0 calls it off.
struct SScarcity {
  uint32_t failingThreadStart = 0;
  uint32_t failingSocketOpen = 0;
  uint32_t failingAllocation = 0;  // of the library's own code, in a program whose operator new asks
  uint32_t failingInARow = 1;      // so many allocations fail then

  // Each counts one call.
  bool IsThreadStartToFail();
  bool IsSocketOpenToFail();
  bool IsAllocationToFail();
};

// One world. Worlds of a process run one after another.
// Thread: the constructing one; in the run the tasks and acts, which are never two at a time.
class CWorld {
 public:
  explicit CWorld(const SWorldOptions& worldOptions);
  ~CWorld();
  CWorld(const CWorld&) = delete;
  CWorld& operator=(const CWorld&) = delete;

  // The one that runs, null outside of a run.
  static CWorld* Current();

  // Runs main as the first task, until every task has ended or a verdict. Once a world. After a verdict other than
  // kEnded the tasks are left where they stood: what they own is never destroyed, and the library's own state is as
  // they left it, so the process is good for a report and no more.
  SOutcome Run(std::function<void()> main);

  // A task of the test, as a thread of the application is one. False when there is nothing to run it on.
  bool Start(const std::string& name, std::function<void()> body);

  // Microseconds since the world began.
  int64_t NowUs() const { return scheduler.NowUs(); }
  // Acts of the outside, in the order of their times, those of the same time in the order of these calls. The number is
  // for Cancel, which is false once the act has begun.
  uint64_t At(int64_t timeUs, std::function<void()> act);
  uint64_t After(int64_t us, std::function<void()> act);
  bool Cancel(uint64_t number);

  // Moves the wall clock, and nothing else.
  void LeapWallClock(int64_t ms) { wallClockMs += ms; }
  // Milliseconds since 1970, UTC.
  int64_t UnixMs() const { return wallClockMs + NowUs() / kUsPerMs; }
  uint32_t TickMs() const;

  // An invariant does not hold: the run ends, with a report of every task.
  void Fail(const std::string& why) { scheduler.Fail(why); }
  // Whatever a test has observed: part of the run's hash.
  void Note(const void* data, size_t length) { scheduler.Trace().AddBytes(data, length); }

  CRandom& Random() { return scheduler.Random(); }
  CScheduler& Scheduler() { return scheduler; }
  CNetwork& Network() { return *network; }
  CFiles& Files() { return *files; }
  SScarcity& Scarcity() { return scarcity; }
  const SWorldOptions& Options() const { return options; }

 private:
  const SWorldOptions options;
  CScheduler scheduler;
  std::unique_ptr<CNetwork> network;
  std::unique_ptr<CFiles> files;
  SScarcity scarcity;
  int64_t wallClockMs;
};

// For the length of a block: what stands in it has to be done within a time of the world, or the run fails.
class CBound {
 public:
  CBound(CWorld& boundWorld, const std::string& what, int64_t mostUs);
  ~CBound();
  CBound(const CBound&) = delete;
  CBound& operator=(const CBound&) = delete;

 private:
  CWorld& world;
  const uint64_t number;
};

}  // namespace zelk::sim
