// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <chrono>

namespace fleet {

// How many calls may begin now, of so many a second: what was not used is kept for a tenth of a second. 0: no limit.
// Thread: one.
class CRate {
 public:
  using Time = std::chrono::steady_clock::time_point;

  CRate(double callsPerSecond, Time now)
      : perSecond(callsPerSecond), most(std::max(1.0, callsPerSecond / 10)), last(now) {}

  int Allowed(Time now, int wanted) {
    if (perSecond <= 0) {
      return wanted;
    }
    left = std::min(most, left + perSecond * std::chrono::duration<double>(now - last).count());
    last = now;
    return std::clamp(static_cast<int>(left), 0, wanted);
  }
  void Spend(int calls) { left -= calls; }
  // Calls that did not begin after all.
  void Return(int calls) { left = std::min(most, left + calls); }

 private:
  const double perSecond;
  const double most;
  double left = 0;
  Time last;
};

}  // namespace fleet
