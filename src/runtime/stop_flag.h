// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/event.h"

namespace zelk {

// Asks a thread to end, and is the bed it sleeps in meanwhile.
// Thread: Set any; the rest the thread that is to end. SleepFor blocks up to its time.
class CStopFlag {
 public:
  void Set() {
    set.store(true, std::memory_order_release);
    wake.Set();
  }
  bool IsSet() const { return set.load(std::memory_order_acquire); }
  // Returns early when the flag is set.
  void SleepFor(uint32_t milliseconds) { wake.WaitFor(milliseconds); }

 private:
  std::atomic<bool> set{false};  // tested every turn, without the event's lock
  CEvent wake;
};

}  // namespace zelk
