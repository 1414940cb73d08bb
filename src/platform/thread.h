// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace zelk {

enum class EThreadPriority {
  kNormal,
  kProAudio,  // as near to real time as the system lets the process go; never an error when it does not
};

// One worker thread with a bounded wait for its end.
// Thread: owner only (start, join); the body runs on the new thread.
// Start returns false when the system gives no thread or no memory. JoinFor blocks up to its limit; when the limit
// passes, the thread is left to end by itself, so the body must own (or outlive) what it touches after its stop flag is
// set. What the body has captured is destroyed on the new thread, before a join reports its end.
class CThread {
 public:
  CThread();
  ~CThread();  // Joins without a limit.
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  // name: at most 15 characters (longer ones are cut), shown by debuggers. False also while a thread that was started
  // before has not been joined.
  bool Start(const char* name, std::function<void()> body, EThreadPriority priority = EThreadPriority::kNormal);
  bool IsStarted() const;
  // True when the body has returned within the time (or no thread was started). The thread is forgotten either way.
  bool JoinFor(uint32_t timeoutMs);

 private:
  struct SState;
  std::shared_ptr<SState> state;
};

// The calling thread's number: no two threads that live at the same time have the same one, and none has 0. Thread:
// any.
uint64_t OwnThreadNumber();

// True while the process ends in a way that has ended every other thread first, wherever it was, with its locks held
// (Windows does so before it tells a library that it goes). Nothing may be waited for then. Thread: any.
bool OtherThreadsAreGone();

}  // namespace zelk
