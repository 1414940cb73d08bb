// SPDX-License-Identifier: GPL-2.0-only
#include "stream/demultiplexer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "dsp/transpose.h"
#include "runtime/prefetch.h"

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
    Foresee(fill * frameBytes / kBlockBytes, (fill + count) * frameBytes / kBlockBytes);
    samples += count * frameBytes;
    frames -= count;
    fill += count;
  }
}

// The blocks that will be written in at most 20 ms, a few with each packet.
void CDemultiplexer::Foresee(size_t first, size_t end) {
  for (size_t i = first; i < end; ++i) {
    if (blocks[i] != nullptr)
      PrefetchToWrite(blocks[i], kBlockBytes);
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
