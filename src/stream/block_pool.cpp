// SPDX-License-Identifier: GPL-2.0-only
#include "stream/block_pool.h"

#include <limits>
#include <new>

namespace zelk {

bool CBlockPool::Create(size_t positions, uint32_t blocks) {
  Release();
  if (positions > kMaxPositions || blocks > std::numeric_limits<uint32_t>::max() / 2)
    return false;
  const size_t count = positions * blocks;
  notes.reset(new (std::nothrow) SBlockNote[count]);
  if (!storage.Create(count * kBlockBytes) || notes == nullptr) {
    Release();
    return false;
  }
  positionCount = positions;
  blockCount = blocks;
  return true;
}

void CBlockPool::Release() {
  storage.Release();
  notes.reset();
  positionCount = 0;
  blockCount = 0;
  for (size_t i = 0; i < kMaxPositions; ++i) {
    filled[i].store(0, std::memory_order_relaxed);
    emptied[i].store(0, std::memory_order_relaxed);
  }
}

}  // namespace zelk
