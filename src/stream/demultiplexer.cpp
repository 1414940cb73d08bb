// SPDX-License-Identifier: GPL-2.0-only
#include "stream/demultiplexer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "dsp/transpose.h"

namespace zelk {

bool CDemultiplexer::Create(CCardRings& cardRings) {
  rings = &cardRings;
  rows.reset(new (std::nothrow) uint8_t[kBlockBytes * rings->PositionCount()]());
  blocks.fill(nullptr);
  fill = 0;
  return rows != nullptr;
}

void CDemultiplexer::Add(const uint8_t* samples, size_t frames) {
  const size_t frameBytes = rings->PositionCount();
  while (frames > 0) {
    if (fill == kBlockBytes)
      TurnBlocks();
    const size_t count = std::min(frames, kBlockBytes - fill);
    std::memcpy(rows.get() + fill * frameBytes, samples, count * frameBytes);
    samples += count * frameBytes;
    frames -= count;
    fill += count;
  }
}

void CDemultiplexer::TurnBlocks() {
  const size_t positions = rings->PositionCount();
  CBlockPool& pool = rings->Receive();
  RowsToBlocks(rows.get(), positions, blocks.data());
  for (size_t i = 0; i < positions; ++i) {
    if (blocks[i] != nullptr)
      pool.PushReady(i);
    blocks[i] = pool.NextFree(i).data;
  }
  fill = 0;
  rings->Rest().Wake();
}

}  // namespace zelk
