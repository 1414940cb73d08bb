// SPDX-License-Identifier: GPL-2.0-only
#include "playback/wave_block.h"

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

}  // namespace zelk
