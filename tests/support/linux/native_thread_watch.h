// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "support/eventually.h"

// The thread that makes it, to be waited for by another one that did not start it.
class CThreadEnd {
 public:
  CThreadEnd() : task("/proc/self/task/" + std::to_string(syscall(SYS_gettid))) {}

  bool WaitFor(int timeoutMs) const {
    const auto hasEnded = [this] { return access(task.c_str(), F_OK) != 0; };
    return support::Eventually(hasEnded, std::chrono::milliseconds(timeoutMs), std::chrono::milliseconds(1));
  }

 private:
  std::string task;
};

// Whether the calling thread asked for real-time scheduling of itself.
inline thread_local bool hasAskedForRealTime = false;

// Stands before the system's in the program that includes this (in one of its sources).
extern "C" int pthread_setschedparam(pthread_t thread, int policy, const sched_param* parameters) noexcept {
  if (pthread_equal(thread, pthread_self()) == 0)
    return ENOSYS;
  hasAskedForRealTime = policy == SCHED_FIFO;
  return syscall(SYS_sched_setscheduler, syscall(SYS_gettid), policy, parameters) == 0 ? 0 : errno;
}

// It has asked, and runs so or with a better nice value than the process where either is allowed.
inline bool OwnPriorityIsRaised() {
  const auto self = static_cast<id_t>(syscall(SYS_gettid));
  const auto isBetter = [self] { return sched_getscheduler(0) == SCHED_FIFO || getpriority(PRIO_PROCESS, self) < 0; };
  return hasAskedForRealTime && (isBetter() || setpriority(PRIO_PROCESS, self, -1) != 0);
}
