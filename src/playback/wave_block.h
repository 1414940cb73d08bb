// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace zelk {

// One queued piece of audio: a link of a play queue's list.
// Thread: whoever holds the pointer; once enqueued, under the queue's lock. Owns its data area and the blocks that
// follow it.
class CWaveBlock {
 public:
  // Null when there is no memory.
  static std::unique_ptr<CWaveBlock> Create(uint32_t size, uint32_t owner);
  // There is always room to spare: 256 bytes ask for 512, none for 256.
  static constexpr size_t AreaBytes(uint32_t size) { return (size_t{size} & ~size_t{0xFF}) + 256; }

  std::unique_ptr<uint8_t[]> data;
  uint32_t size = 0;  // bytes of audio; how many of the first block are copied out, its queue knows
  std::unique_ptr<CWaveBlock> next;

  // Kept, never read by the library.
  uint32_t owner = 0;  // low 32 bits of the queue's address, to know it by in a memory dump
  std::array<uint32_t, 2> reserved{};
};

}  // namespace zelk
