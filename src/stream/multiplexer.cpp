// SPDX-License-Identifier: GPL-2.0-only
#include "stream/multiplexer.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "dsp/transpose.h"
#include "formats/g711.h"
#include "runtime/status_page.h"

namespace zelk {
namespace {

using Block = std::array<uint8_t, kBlockBytes>;

constexpr Block MakeIdleBlock() {
  Block block{};
  block.fill(kIdleByte);
  return block;
}

constexpr Block kIdleBlock = MakeIdleBlock();

}  // namespace

bool CMultiplexer::Create(CCardRings& cardRings) {
  rings = &cardRings;
  const size_t bytes = kBlockBytes * rings->PositionCount();
  rows.reset(new (std::nothrow) uint8_t[bytes]);
  if (rows == nullptr)
    return false;
  std::memset(rows.get(), kIdleByte, bytes);
  columns.fill({false, kIdleByte, 0});
  next = 0;
  // Nothing but idle bytes stands in the rows, so flushes up to the next block need no look.
  flushesSeen = controls.flushes.load(std::memory_order_acquire);
  return true;
}

bool CMultiplexer::CopyFrames(uint8_t* target, size_t frames) {
  SilenceFlushed();
  const size_t frameBytes = rings->PositionCount();
  while (frames > 0) {
    if (next == kBlockBytes && !TurnBlocks())
      return false;
    const size_t count = std::min(frames, kBlockBytes - next);
    std::memcpy(target, rows.get() + next * frameBytes, count * frameBytes);
    // The blocks that will be read in at most 20 ms, a few with each packet.
    for (size_t i = next * frameBytes / kBlockBytes; i < (next + count) * frameBytes / kBlockBytes; ++i)
      rings->Transmit().ForeseeReady(i, columns[i].hasBlock);
    target += count * frameBytes;
    frames -= count;
    next += count;
  }
  return true;
}

bool CMultiplexer::TurnBlocks() {
  std::array<const uint8_t*, kMaxPositions> sources;
  const size_t positions = rings->PositionCount();
  for (size_t first = 0; first < positions; first += kTurnedTogether) {
    if (!TakeGroup(first, &sources[first]))
      return false;
  }
  BlocksToRows(sources.data(), positions, rows.get());
  next = 0;
  rings->Rest().Wake();
  return true;
}

// The next blocks of positions that are turned together; none when all of them are what the rows hold already: what a
// card with idle lines sends costs nothing to turn. False after a stop.
bool CMultiplexer::TakeGroup(size_t first, const uint8_t** sources) {
  bool changes = false;
  for (size_t i = 0; i < kTurnedTogether; ++i) {
    sources[i] = TakeBlock(first + i, changes);
    if (sources[i] == nullptr)
      return false;
  }
  if (!changes)
    std::fill_n(sources, kTurnedTogether, nullptr);
  return true;
}

// The next block's bytes for the rows: its own, or idle ones if it is missing or was flushed. Null after a stop.
const uint8_t* CMultiplexer::TakeBlock(size_t position, bool& changes) {
  CBlockPool& pool = rings->Transmit();
  SColumn& column = columns[position];
  if (column.hasBlock)
    pool.PushFree(position);
  const SPoolBlock taken = pool.NextReady(position);
  column.hasBlock = static_cast<bool>(taken);
  if (!taken) {
    if (SStatusChannel* const shown = StatusPage().Position(controls.card, position))
      StatusAdd(shown->lostSent);
  }
  if (taken && taken.note->mark && !ReportMark(position))
    return nullptr;
  column.flushCount = controls.flushCounts[position].load(std::memory_order_acquire);
  const bool isIdle = !taken || taken.note->flushCount != column.flushCount;
  const int16_t before = std::exchange(column.uniform, isIdle ? int16_t{kIdleByte} : taken.note->uniform);
  changes = changes || column.uniform == kNotUniform || column.uniform != before;
  return isIdle ? kIdleBlock.data() : taken.data;
}

bool CMultiplexer::ReportMark(size_t position) {
  if (IMediaHook* hook = controls.hook.load(std::memory_order_acquire))
    hook->OnMarkSent(TrunkOf(position), TimeslotOf(position));
  return !stop.IsSet();
}

// Flushes since the last look: what is left of those positions' blocks becomes idle bytes.
void CMultiplexer::SilenceFlushed() {
  const uint32_t flushes = controls.flushes.load(std::memory_order_acquire);
  if (flushes == flushesSeen)
    return;
  flushesSeen = flushes;
  const size_t frameBytes = rings->PositionCount();
  for (size_t i = 0; i < frameBytes; ++i) {
    const uint32_t flushCount = controls.flushCounts[i].load(std::memory_order_acquire);
    if (flushCount == columns[i].flushCount)
      continue;
    columns[i].flushCount = flushCount;
    columns[i].uniform = kNotUniform;
    for (size_t row = next; row < kBlockBytes; ++row)
      rows[row * frameBytes + i] = kIdleByte;
  }
}

}  // namespace zelk
