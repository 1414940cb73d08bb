// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <thread>

// What the system says of the calling thread.

// Nothing where the system keeps no names.
inline std::optional<std::string> OwnThreadName() {
  std::array<char, 64> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

// Real time, or a nice value better than the others'.
inline bool OwnThreadIsRaised() {
  const int own = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
  return sched_getscheduler(0) == SCHED_FIFO || own < getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
}

// Whether a thread of this process can be raised at all.
inline bool ThreadsMayBeRaised() {
  bool may = false;
  std::thread([&may] {
    sched_param parameters{};
    parameters.sched_priority = sched_get_priority_min(SCHED_FIFO);
    const auto self = static_cast<id_t>(syscall(SYS_gettid));
    may = sched_setscheduler(0, SCHED_FIFO, &parameters) == 0 ||
          setpriority(PRIO_PROCESS, self, getpriority(PRIO_PROCESS, self) - 1) == 0;
  }).join();
  return may;
}
