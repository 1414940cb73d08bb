#pragma once

#include <chrono>
#include <thread>

namespace support {

constexpr std::chrono::seconds kGenerous{10};  // a bound for what happens at once, on a loaded machine

// True as soon as the condition holds; false when it has not held within the bound. For what cannot be waited for:
// files, processes, counters without an event. The condition is asked once a millisecond.
template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds bound = kGenerous) {
  const auto deadline = std::chrono::steady_clock::now() + bound;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace support
