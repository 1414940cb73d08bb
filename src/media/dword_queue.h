#pragma once

#include <cstdint>
#include <vector>

#include "platform/mutex.h"

namespace zelk {

// A bounded ring of 32-bit values under a lock of its own. Call control only ever empties it.
// Thread: any.
class CDwordQueue {
 public:
  bool Create(uint32_t capacity);
  void Clear();               // head and tail to 0, storage zeroed
  bool Push(uint32_t value);  // false when full
  bool Pop(uint32_t& value);  // false when empty

 private:
  CMutex lock;
  std::vector<uint32_t> storage ZELK_GUARDED_BY(lock);
  uint32_t head ZELK_GUARDED_BY(lock) = 0;
  uint32_t tail ZELK_GUARDED_BY(lock) = 0;
};

}  // namespace zelk
