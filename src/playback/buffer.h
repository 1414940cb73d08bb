// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>

namespace zelk {

// A byte buffer that grows by a fixed step, for the record tap. Made empty. Kept, never read by the library.
// Thread: one at a time. Append may allocate; a failed growth returns false and keeps what is in it.
class CBuffer {
 public:
  static constexpr uint32_t kGrowthStep = 80000;

  CBuffer() = default;
  virtual ~CBuffer() = default;
  CBuffer(const CBuffer&) = delete;
  CBuffer& operator=(const CBuffer&) = delete;

  bool Append(const uint8_t* bytes, uint32_t count);
  const uint8_t* Data() const { return data.get(); }
  uint32_t Length() const { return length; }
  uint32_t Capacity() const { return capacity; }

 private:
  bool Grow(uint64_t needed);

  uint32_t capacity = 0;
  std::unique_ptr<uint8_t[]> data;
  uint32_t length = 0;
};

}  // namespace zelk
