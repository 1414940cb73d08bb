// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdlib>

// How long the stress lasts: ZELK_STRESS_SECONDS, 60 by hand; it scales the number of calls in a row, too.
inline int StressSeconds() {
  constexpr int kCiSeconds = 15;
  const char* text = std::getenv("ZELK_STRESS_SECONDS");
  const int seconds = text == nullptr ? 0 : std::atoi(text);
  return seconds > 0 ? seconds : kCiSeconds;
}
