#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/thread.h"
#include "stream/media_hook.h"

namespace zelk {

// Which block each of a card's pacers is filling, so that a stop that comes from inside the fill finds its own. A pacer
// holds a slot for a pass. One that a callback kept over a close holds its slot on until the callback returns, hence
// more than one; when all are taken, a stop inside the callback is treated as one from another thread.
// Thread: a slot's position and fill only the thread whose number stands in it; Own any. Nothing blocks.
class CFillSlots {
 public:
  class CHold;

  // What the calling thread is filling at this position, or null.
  SBlockFill* Own(size_t position) const {
    const uint64_t self = OwnThreadNumber();
    for (const SSlot& slot : slots) {
      if (slot.thread.load(std::memory_order_relaxed) == self)
        return slot.position == position ? slot.fill : nullptr;
    }
    return nullptr;
  }

 private:
  struct SSlot {
    std::atomic<uint64_t> thread{0};  // 0: free
    size_t position = 0;
    SBlockFill* fill = nullptr;
  };

  std::array<SSlot, 4> slots;
};

// One pacer's slot for the length of a pass.
class CFillSlots::CHold {
 public:
  explicit CHold(CFillSlots& slots) {
    for (SSlot& each : slots.slots) {
      uint64_t nobody = 0;
      if (slot == nullptr && each.thread.compare_exchange_strong(nobody, OwnThreadNumber(), std::memory_order_acquire))
        slot = &each;
    }
  }
  ~CHold() {
    if (slot != nullptr)
      slot->thread.store(0, std::memory_order_release);
  }
  CHold(const CHold&) = delete;
  CHold& operator=(const CHold&) = delete;

  void Begin(size_t position, SBlockFill& fill) { Set(position, &fill); }
  void End() { Set(0, nullptr); }

 private:
  void Set(size_t position, SBlockFill* fill) {
    if (slot != nullptr) {
      slot->position = position;
      slot->fill = fill;
    }
  }

  SSlot* slot = nullptr;
};

}  // namespace zelk
