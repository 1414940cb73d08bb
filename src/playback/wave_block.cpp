// SPDX-License-Identifier: GPL-2.0-only
#include "playback/wave_block.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace zelk {

std::unique_ptr<CWaveBlock> CWaveBlock::Create(uint32_t size, uint32_t owner) {
  std::unique_ptr<CWaveBlock> block(new (std::nothrow) CWaveBlock);
  if (!block) {
    return nullptr;
  }
  block->data.reset(new (std::nothrow) uint8_t[AreaBytes(size)]);
  if (!block->data) {
    return nullptr;
  }
  block->size = size;
  block->owner = owner;
  return block;
}

uint32_t CWaveBlock::Read(uint8_t* target, uint32_t wanted) {
  const uint32_t count = std::min(wanted, Unread());
  std::memcpy(target, data.get() + readPosition, count);
  readPosition += count;
  return count;
}

}  // namespace zelk
