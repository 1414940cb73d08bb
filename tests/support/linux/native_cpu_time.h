// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <ctime>

// What this process has used of the processors so far.
inline double ProcessCpuSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}
