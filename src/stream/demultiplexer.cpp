// SPDX-License-Identifier: GPL-2.0-only
#include "stream/demultiplexer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "dsp/transpose.h"
#include "runtime/prefetch.h"
#include "runtime/status_page.h"

namespace zelk {

bool CDemultiplexer::Create(CCardRings& cardRings, uint32_t card) {
  rings = &cardRings;
  cardNumber = card;
  rows.reset(new (std::nothrow) uint8_t[kBlockBytes * rings->PositionCount()]());
  blocks.fill({});
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
    if (blocks[i] && blocks[i].note->uniform == kNotUniform)
      PrefetchToWrite(blocks[i].data, kBlockBytes);
  }
}

void CDemultiplexer::TurnBlocks() {
  const size_t positions = rings->PositionCount();
  CBlockPool& pool = rings->Receive();
  LeaveSteady();
  RowsToBlocks(rows.get(), positions, targets.data());
  for (size_t i = 0; i < positions; ++i) {
    if (blocks[i])
      pool.PushReady(i);
    blocks[i] = pool.NextFree(i);
    if (!blocks[i])
      CountLost(i);
  }
  fill = 0;
  rings->Rest().Wake();
}

void CDemultiplexer::CountLost(size_t position) const {
  if (SStatusChannel* const shown = StatusPage().Position(cardNumber, position))
    StatusAdd(shown->lostReceived);
}

// Picks the blocks that must be turned, after it has done with the others.
void CDemultiplexer::LeaveSteady() {
  const size_t positions = rings->PositionCount();
  std::array<uint8_t, kMaxPositions> changes;
  FindSteady(rows.get(), positions, changes.data());
  for (size_t i = 0; i < positions; ++i) {
    targets[i] = changes[i] != 0 ? blocks[i].data : nullptr;
    if (!blocks[i])
      continue;
    const int16_t uniform = changes[i] != 0 ? kNotUniform : int16_t{rows[i]};
    int16_t& known = blocks[i].note->uniform;
    if (uniform == known)
      continue;
    known = uniform;
    if (uniform != kNotUniform)
      std::memset(blocks[i].data, uniform, kBlockBytes);
  }
}

}  // namespace zelk
