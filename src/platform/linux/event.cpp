// SPDX-License-Identifier: GPL-2.0-only
#include "platform/event.h"

#include <chrono>

namespace zelk {

void CEvent::Set() {
  if (native.set.load(std::memory_order_acquire)) {
    return;
  }
  const std::lock_guard<std::mutex> hold(native.mutex);
  native.set.store(true, std::memory_order_release);
  native.changed.notify_all();
}

void CEvent::Reset() {
  const std::lock_guard<std::mutex> hold(native.mutex);
  native.set.store(false, std::memory_order_release);
}

void CEvent::Wait() {
  std::unique_lock<std::mutex> hold(native.mutex);
  native.changed.wait(hold, [this] { return native.set.load(std::memory_order_acquire); });
}

bool CEvent::WaitFor(uint32_t timeoutMs) {
  std::unique_lock<std::mutex> hold(native.mutex);
  return native.changed.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                                 [this] { return native.set.load(std::memory_order_acquire); });
}

}  // namespace zelk
