// SPDX-License-Identifier: GPL-2.0-only
#include "playback/wave_block.h"

#include <new>

namespace zelk {

std::unique_ptr<CWaveBlock> CWaveBlock::Create(uint32_t size, uint32_t owner) {
  void* const memory = AudioStore().Take(sizeof(CWaveBlock) + AreaBytes(size));
  return std::unique_ptr<CWaveBlock>(memory != nullptr ? ::new (memory) CWaveBlock(size, owner) : nullptr);
}

}  // namespace zelk
