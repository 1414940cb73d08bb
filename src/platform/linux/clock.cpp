// SPDX-License-Identifier: GPL-2.0-only
#include "platform/clock.h"

#include <sched.h>

#include <cerrno>
#include <ctime>

namespace zelk {

namespace {

constexpr int64_t kNanosecondsPerMs = 1'000'000;

SLocalTime BreakDown(time_t second) {
  tm parts{};
  if (localtime_r(&second, &parts) == nullptr) {
    return {};
  }
  return {static_cast<uint16_t>(parts.tm_year + 1900), static_cast<uint16_t>(parts.tm_mon + 1),
          static_cast<uint16_t>(parts.tm_mday),        static_cast<uint16_t>(parts.tm_hour),
          static_cast<uint16_t>(parts.tm_min),         static_cast<uint16_t>(parts.tm_sec)};
}

}  // namespace

uint32_t TickMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000U +
                               static_cast<uint64_t>(now.tv_nsec / kNanosecondsPerMs));
}

SUnixTime UnixNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return {now.tv_sec, static_cast<int32_t>(now.tv_nsec / kNanosecondsPerMs) * 1000};
}

SLocalTime LocalNow() {
  struct SKept {
    time_t second = -1;  // nothing kept yet: no process runs one second before the epoch
    SLocalTime parts{};
  };
  thread_local SKept kept;
  // Seconds as time() counts them. They turn with the system's tick, a few milliseconds late at most, and to read them
  // costs a fifth.
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  if (now.tv_sec != kept.second) {
    kept = {now.tv_sec, BreakDown(now.tv_sec)};
  }
  return kept.parts;
}

void SleepMs(uint32_t milliseconds) {
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  // Until an instant, not for a span: a signal in between does not lengthen the sleep.
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += milliseconds / 1000;
  until.tv_nsec += static_cast<long>(milliseconds % 1000) * kNanosecondsPerMs;
  if (until.tv_nsec >= 1000 * kNanosecondsPerMs) {
    until.tv_nsec -= 1000 * kNanosecondsPerMs;
    ++until.tv_sec;
  }
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

bool SleepsAreExact() {
  return true;
}

}  // namespace zelk
