// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <windows.h>

// What this process has used of the processors so far (clock() counts the time of day here).
inline double ProcessCpuSeconds() {
  FILETIME created{};
  FILETIME ended{};
  FILETIME kernel{};
  FILETIME user{};
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  const auto seconds = [](const FILETIME& time) {
    return (static_cast<double>(time.dwHighDateTime) * 4294967296.0 + static_cast<double>(time.dwLowDateTime)) / 1e7;
  };
  return seconds(kernel) + seconds(user);
}
