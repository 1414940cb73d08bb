// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "playback/audio_store.h"

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

  // The data area stands behind the record, in one piece of memory with it.
  static void operator delete(void* memory) { AudioStore().Return(memory); }
  uint8_t* Data() { return reinterpret_cast<uint8_t*>(this + 1); }

  std::unique_ptr<CWaveBlock> next;
  uint32_t size;  // bytes of audio; how many of the first block are copied out, its queue knows

  // Kept, never read by the library.
  uint32_t owner;  // low 32 bits of the queue's address, to know it by in a memory dump
  std::array<uint32_t, 2> reserved{};

 private:
  CWaveBlock(uint32_t audioBytes, uint32_t ownerMark) : size(audioBytes), owner(ownerMark) {}
};

}  // namespace zelk
