// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

// Local wall-clock time, as log and capture lines print it.
struct SLocalTime {
  uint16_t year;
  uint16_t month;   // 1..12
  uint16_t day;     // 1..31
  uint16_t hour;    // 0..23
  uint16_t minute;  // 0..59
  uint16_t second;  // 0..60
};

// UTC as libpri's scheduler counts it: whole milliseconds, given as microseconds.
struct SUnixTime {
  int64_t seconds;
  int32_t microseconds;  // 0..999000, a multiple of 1000
};

// Milliseconds of a monotonic clock, wrapping at 2^32: compare by unsigned difference only. Thread: any.
uint32_t TickMs();

// The system's UTC time. Thread: any.
SUnixTime UnixNow();

// The system's local time. The broken-down second is kept per thread, because the conversion takes a process-wide lock.
// Thread: any.
SLocalTime LocalNow();

// Blocks the calling thread for at least the given time; 0 gives up the rest of its time slice.
void SleepMs(uint32_t milliseconds);

// Whether short sleeps and waits take about as long as they are asked to. Where they do not, they end with a tick of
// the system, up to 16 ms later.
bool SleepsAreExact();

}  // namespace zelk
