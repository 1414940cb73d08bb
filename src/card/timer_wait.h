// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/clock.h"

namespace zelk {

// The longest wait of the control thread while a timer of libpri is pending, so that timers fire in time.
constexpr int32_t kTimerWaitMs = 100;

bool IsEarlier(const SUnixTime& left, const SUnixTime& right);

// How long to wait for a timer due at an instant: 0 when it has passed, at most kTimerWaitMs. Part milliseconds count
// as whole ones, so that a wait does not end before its timer is due. Thread: any.
int32_t TimerWaitMs(const SUnixTime& due, const SUnixTime& now);

// How long until the next beat, a multiple of kTimerWaitMs on the millisecond clock. A wait of the longest kind ends
// there: what a thread costs that only looks for timers is the machine's wake-up, and the cards' threads share it.
// Never nothing. Thread: any.
int32_t MsToBeat(uint32_t nowMs);

// How long to leave the control connection alone after a read, so that what comes meanwhile is read together: a busy
// card sends some message every tenth of a millisecond, and each would wake the thread. Nothing unless the read before
// was just now, nor when the read filled the buffer. A D-channel takes as long for a SETUP of 48 bytes. Thread: any.
uint32_t GatherMs(uint32_t sinceReadBeforeMs, size_t received, size_t capacity);

}  // namespace zelk
