// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace zelk {

// What an event is made of here.
struct SNativeEvent {
  std::mutex mutex;
  std::condition_variable changed;
  std::atomic<bool> set{false};  // written under mutex; read without it only to see that there is nothing to do
};

}  // namespace zelk
