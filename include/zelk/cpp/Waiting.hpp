/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * How threads wait for what the library brings, and leave when it is shut down.
 */
#ifndef ZELK_CPP_WAITING_HPP
#define ZELK_CPP_WAITING_HPP

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace zelkapi {

/** A time-out that never comes. */
constexpr std::chrono::milliseconds kForever{-1};

/** @cond INTERNAL */
namespace detail {

/** The end of a wait: a negative time-out has none. */
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds timeout)
      : endless(timeout.count() < 0 || timeout > kLongest),
        end(std::chrono::steady_clock::now() + (endless ? std::chrono::milliseconds(0) : timeout)) {}

  /** Waits until the condition holds; false when the time is over first. Condition under the lock. */
  template <class Condition>
  bool wait(std::condition_variable& changed, std::unique_lock<std::mutex>& held, Condition condition) const {
    if (endless) {
      changed.wait(held, condition);
      return true;
    }
    return changed.wait_until(held, end, condition);
  }

 private:
  static constexpr std::chrono::hours kLongest{24 * 365};

  bool endless;
  std::chrono::steady_clock::time_point end;
};

/**
 * What ends a wait from outside: the end of the run, and a wake. Used under the lock of what is waited for.
 */
class Interruption {
 public:
  /** A thread that waits: what it saw when it came. */
  struct Ticket {
    std::uint64_t run = 0;
    std::uint64_t wakes = 0;
  };

  void begin() {
    running = true;
    wakeKept = false;
  }
  void end() {
    running = false;
    ++run;
  }
  bool isRunning() const { return running; }

  /** For those who wait; where nobody does, for the next who comes. */
  void wake(bool someoneWaits) {
    if (someoneWaits) {
      ++wakes;
    } else {
      wakeKept = true;
    }
  }

  /** False: there is nothing to wait for, or a wake was kept. */
  bool enter(Ticket& ticket) {
    ticket = {run, wakes};
    const bool mayWait = running && !wakeKept;
    wakeKept = false;
    return mayWait;
  }
  bool isOver(const Ticket& ticket) const { return !running || ticket.run != run || ticket.wakes != wakes; }

 private:
  bool running = false;
  bool wakeKept = false;
  std::uint64_t run = 0;
  std::uint64_t wakes = 0;
};

/** The process, to tell a child made by fork from its parent. */
inline long processNumber() noexcept {
#if defined(_WIN32)
  return 1;
#else
  return static_cast<long>(::getpid());
#endif
}

/** True on a thread of the library while it runs code of the application. */
inline bool& onLibraryThread() noexcept {
  thread_local bool inside = false;
  return inside;
}

/**
 * Lets calls into the library through while it runs, and lets its shut-down wait for those that are inside. No call
 * waits here, so none that holds a lock of the library can be held up.
 */
class Gate {
 public:
  enum class State { Closed, Starting, Open };

  void set(State newState) noexcept { state.store(newState); }

  /** False, and nothing to leave, when the library does not run. While it starts only its own threads come through. */
  bool enter() noexcept {
    ++inside;
    const State now = state.load();
    if (now == State::Open || (now == State::Starting && onLibraryThread())) {
      return true;
    }
    leave();
    return false;
  }

  void leave() noexcept {
    if (--inside == 0 && state.load() == State::Closed) {
      const std::lock_guard<std::mutex> held(lock);
      left.notify_all();
    }
  }

  /** Closes, and waits until nobody is inside. */
  void close() {
    state.store(State::Closed);
    std::unique_lock<std::mutex> held(lock);
    left.wait(held, [this] { return inside.load() == 0; });
  }

 private:
  std::atomic<State> state{State::Closed};
  std::atomic<std::uint32_t> inside{0};
  std::mutex lock;
  std::condition_variable left;
};

}  // namespace detail
/** @endcond */
}  // namespace zelkapi

#endif
