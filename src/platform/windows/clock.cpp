// SPDX-License-Identifier: GPL-2.0-only
#include "platform/clock.h"

#include <windows.h>

namespace zelk {

namespace {

constexpr uint64_t kTicksToUnixEpoch = 116'444'736'000'000'000;  // of 100 ns, from 1601 to 1970
constexpr uint64_t kTicksPerMs = 10'000;

}  // namespace

uint32_t TickMs() {
  return GetTickCount();
}

SUnixTime UnixNow() {
  FILETIME system{};
  GetSystemTimeAsFileTime(&system);
  const uint64_t ticks = uint64_t{system.dwHighDateTime} << 32 | system.dwLowDateTime;
  const uint64_t milliseconds = (ticks - kTicksToUnixEpoch) / kTicksPerMs;
  return {static_cast<int64_t>(milliseconds / 1000), static_cast<int32_t>(milliseconds % 1000) * 1000};
}

// The system keeps the local time for every process: reading it takes no lock.
SLocalTime LocalNow() {
  SYSTEMTIME local{};
  GetLocalTime(&local);
  return {local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond};
}

void SleepMs(uint32_t milliseconds) {
  Sleep(milliseconds);
}

bool SleepsAreExact() {
  return false;
}

}  // namespace zelk
