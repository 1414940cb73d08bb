// SPDX-License-Identifier: GPL-2.0-only
#include "replay/clock.h"

#include <sys/time.h>

#include <algorithm>
#include <ctime>

namespace replay {
namespace {

constexpr Time kMicrosecond = 1000;
Time now = 0;

}  // namespace

Time Now() {
  return now;
}

void StartAt(Time time) {
  now = time - time % kMicrosecond;
}

void AdvanceTo(Time time) {
  now = std::max(now, time - time % kMicrosecond);
}

}  // namespace replay

// In the place of the functions of the C library, by the linker's --wrap.
extern "C" {
int __wrap_gettimeofday(timeval* time, void* zone);
time_t __wrap_time(time_t* time);
long __wrap_random(void);
}

int __wrap_gettimeofday(timeval* time, void*) {
  time->tv_sec = replay::Now() / trace::kSecond;
  time->tv_usec = replay::Now() % trace::kSecond / replay::kMicrosecond;
  return 0;
}

time_t __wrap_time(time_t* time) {
  const time_t seconds = replay::Now() / trace::kSecond;
  if (time != nullptr) {
    *time = seconds;
  }
  return seconds;
}

// Chance has no place in a replay. libpri takes it for the addressing of several terminals, which a trunk has not.
long __wrap_random(void) {
  return 4;
}
