// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "platform/clock.h"

namespace zelk {

// The longest wait of the control thread while a timer of libpri is pending, so that timers fire in time.
constexpr int32_t kTimerWaitMs = 100;

bool IsEarlier(const SUnixTime& left, const SUnixTime& right);

// How long to wait for a timer due at an instant: 0 when it has passed, at most kTimerWaitMs. Part milliseconds count
// as whole ones, so that a wait does not end before its timer is due. Thread: any.
int32_t TimerWaitMs(const SUnixTime& due, const SUnixTime& now);

}  // namespace zelk
