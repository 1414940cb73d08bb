// SPDX-License-Identifier: GPL-2.0-only
#include "playback/buffer.h"

#include <cstring>
#include <limits>
#include <new>

namespace zelk {

bool CBuffer::Append(const uint8_t* bytes, uint32_t count) {
  const uint64_t needed = uint64_t{length} + count;
  if (needed > capacity && !Grow(needed)) {
    return false;
  }
  if (count > 0) {
    std::memcpy(data.get() + length, bytes, count);
  }
  length += count;
  return true;
}

// To the smallest whole number of growth steps that holds what is needed.
bool CBuffer::Grow(uint64_t needed) {
  const uint64_t wanted = (needed + kGrowthStep - 1) / kGrowthStep * kGrowthStep;
  if (wanted > std::numeric_limits<uint32_t>::max()) {
    return false;
  }
  std::unique_ptr<uint8_t[]> larger(new (std::nothrow) uint8_t[static_cast<size_t>(wanted)]);
  if (!larger) {
    return false;
  }
  if (length > 0) {
    std::memcpy(larger.get(), data.get(), length);
  }
  data = std::move(larger);
  capacity = static_cast<uint32_t>(wanted);
  return true;
}

}  // namespace zelk
