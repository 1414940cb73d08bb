// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>

namespace zelk {

// What an event is made of here: a manual-reset event of the system. Throws std::bad_alloc when there is none left.
struct SNativeEvent {
  SNativeEvent();
  ~SNativeEvent();
  SNativeEvent(const SNativeEvent&) = delete;
  SNativeEvent& operator=(const SNativeEvent&) = delete;

  void* const handle;
  std::atomic<bool> set{false};  // cleared after the reset of the handle; read only to see that there is nothing to do
};

}  // namespace zelk
