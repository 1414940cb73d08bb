// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>

#include "platform/mutex.h"

namespace zelk {

// A bounded ring of 32-bit values under a lock of its own. Kept, never read by the library: call control only ever
// empties it. Before Create it has no room: every push and pop fails. Thread: any.
class CDwordQueue {
 public:
  bool Create(uint32_t capacity);  // empty again, with room for this many values; false without memory: no room
  void Clear();                    // head and tail to 0, storage zeroed
  bool Push(uint32_t value);       // false when full
  bool Pop(uint32_t& value);       // false when empty

 private:
  CMutex lock;
  std::unique_ptr<uint32_t[]> storage ZELK_GUARDED_BY(lock);
  uint32_t room ZELK_GUARDED_BY(lock) = 0;
  uint32_t head ZELK_GUARDED_BY(lock) = 0;  // next value out
  uint32_t tail ZELK_GUARDED_BY(lock) = 0;  // next free place
  uint32_t count ZELK_GUARDED_BY(lock) = 0;
};

}  // namespace zelk
