// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <thread>

namespace support {

// The only sleep of the tests: for those where passing time itself is what is tried, and for Eventually. What a test
// waits for otherwise has an event, or Eventually finds it.
template <class Rep, class Period>
void LetPass(std::chrono::duration<Rep, Period> time) {
  std::this_thread::sleep_for(time);
}

// Long enough for a thread to be inside its wait; where it is not, a test still passes.
inline void LetThreadsWait() {
  LetPass(std::chrono::milliseconds(10));
}

// Looks again and again for what has no event of its own; false when it has not come within the bound.
template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds bound = std::chrono::seconds(10),
                std::chrono::milliseconds betweenLooks = std::chrono::milliseconds(2)) {
  const auto end = std::chrono::steady_clock::now() + bound;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    LetPass(betweenLooks);
  }
  return true;
}

}  // namespace support
