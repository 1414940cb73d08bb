// SPDX-License-Identifier: GPL-2.0-only
#include "card/timer_wait.h"

namespace zelk {

namespace {

constexpr uint32_t kGatherMs = 6;
constexpr uint32_t kBusyMs = 2 * kGatherMs;  // between two reads, the pause and what is done about the first included

}  // namespace

bool IsEarlier(const SUnixTime& left, const SUnixTime& right) {
  return left.seconds != right.seconds ? left.seconds < right.seconds : left.microseconds < right.microseconds;
}

int32_t TimerWaitMs(const SUnixTime& due, const SUnixTime& now) {
  int64_t seconds = due.seconds - now.seconds;
  int32_t microseconds = due.microseconds - now.microseconds;
  if (microseconds < 0) {
    microseconds += 1000000;
    --seconds;
  }
  if (seconds < 0) {
    return 0;
  }
  if (seconds >= 1 || microseconds >= kTimerWaitMs * 1000) {
    return kTimerWaitMs;
  }
  return (microseconds + 999) / 1000;
}

int32_t MsToBeat(uint32_t nowMs) {
  return kTimerWaitMs - static_cast<int32_t>(nowMs % static_cast<uint32_t>(kTimerWaitMs));
}

uint32_t GatherMs(uint32_t sinceReadBeforeMs, size_t received, size_t capacity) {
  return sinceReadBeforeMs <= kBusyMs && received < capacity ? kGatherMs : 0;
}

}  // namespace zelk
