#include "platform/event.h"

#include <chrono>

namespace zelk {

void CEvent::Set() {
  if (set.load(std::memory_order_acquire)) {
    return;
  }
  const std::lock_guard<std::mutex> hold(mutex);
  set.store(true, std::memory_order_release);
  changed.notify_all();
}

void CEvent::Reset() {
  const std::lock_guard<std::mutex> hold(mutex);
  set.store(false, std::memory_order_release);
}

void CEvent::Wait() {
  std::unique_lock<std::mutex> hold(mutex);
  changed.wait(hold, [this] { return set.load(std::memory_order_acquire); });
}

bool CEvent::WaitFor(uint32_t timeoutMs) {
  std::unique_lock<std::mutex> hold(mutex);
  return changed.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                          [this] { return set.load(std::memory_order_acquire); });
}

}  // namespace zelk
