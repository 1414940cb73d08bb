// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/memory/large_memory.h"
#include "runtime/e1.h"
#include "runtime/prefetch.h"

namespace zelk {

// Of a block whose bytes are not known to be all the same.
constexpr int16_t kNotUniform = -1;

// What goes with a block from the thread that fills it to the one that empties it.
struct SBlockNote {
  uint32_t flushCount = 0;        // of the position, under which the block was filled
  bool mark = false;              // the block ends a play
  int16_t uniform = kNotUniform;  // what all its bytes are known to be
};

// A block of a pool and its note; null where there is none.
struct SPoolBlock {
  uint8_t* data = nullptr;
  SBlockNote* note = nullptr;

  explicit operator bool() const { return data != nullptr; }
};

// The blocks of one direction of a card: at every position the same number of equal blocks, which go round between two
// rings, free and ready. At a position one thread fills and one empties, each a block at a time and in the order of the
// ring, so a position's two counters are both rings: nothing else is shared, and no lock is taken. Blocks that are
// filled at the same time stand side by side:
//
//            position 0   1   2  ...               position p, 4 blocks:   free | ready
//   block 0         [160][160][160]                emptied = 1 ------------------^     ^
//   block 1         [160][160][160]                filled  = 3 ------------------------+
//
// Thread: Create and Release the opener, while no other uses the pool; NextFree and PushReady the filling thread of the
// position, NextReady and PushFree the emptying one; the counts any. Nothing blocks. Create returns false (no block
// anywhere) when there is no memory. Owns the blocks' storage.
class CBlockPool {
 public:
  CBlockPool() = default;
  CBlockPool(const CBlockPool&) = delete;
  CBlockPool& operator=(const CBlockPool&) = delete;

  // All blocks zeroed and free; positions at most kMaxPositions. 0 blocks is a pool that never has one.
  bool Create(size_t positions, uint32_t blocks);
  void Release();

  // The next block to fill, none when all wait to be emptied; the same until it is pushed. Its bytes and its note are
  // those that it had when it was emptied.
  SPoolBlock NextFree(size_t position) {
    const uint32_t own = filled[position].load(std::memory_order_relaxed);
    return Between(emptied[position].load(std::memory_order_acquire), own) < blockCount ? At(position, own)
                                                                                        : SPoolBlock();
  }
  // Asks for the memory of that block, if it is likely to be written.
  void Foresee(size_t position) {
    if (const SPoolBlock block = NextFree(position); block && block.note->uniform == kNotUniform)
      PrefetchToWrite(block.data, kBlockBytes);
  }
  // Hands the block that NextFree gave, with its note, to the other side.
  void PushReady(size_t position) { Step(filled[position]); }

  // The oldest block that is ready, or none; the same until it is pushed back.
  SPoolBlock NextReady(size_t position) {
    const uint32_t own = emptied[position].load(std::memory_order_relaxed);
    return filled[position].load(std::memory_order_acquire) != own ? At(position, own) : SPoolBlock();
  }
  // Asks for the memory of the oldest ready block, or of the one after it, if it is likely to be read.
  void ForeseeReady(size_t position, bool after) {
    uint32_t counter = emptied[position].load(std::memory_order_relaxed);
    if (after)
      counter = After(counter);
    if (counter == filled[position].load(std::memory_order_acquire))
      return;
    const SPoolBlock block = At(position, counter);
    if (block.note->uniform == kNotUniform)
      Prefetch(block.data, kBlockBytes);
  }
  // Gives the block that NextReady gave back to be filled.
  void PushFree(size_t position) { Step(emptied[position]); }

  // As of the call, exact for a thread that is the only user. A block in a thread's hand counts where it came from.
  uint32_t FreeCount(size_t position) const { return blockCount - ReadyCount(position); }
  uint32_t ReadyCount(size_t position) const {
    return Between(emptied[position].load(std::memory_order_acquire), filled[position].load(std::memory_order_acquire));
  }

 private:
  // Counters run to twice the number of blocks, so that full and empty stay apart.
  using Counters = std::array<std::atomic<uint32_t>, kMaxPositions>;

  uint32_t Between(uint32_t from, uint32_t to) const { return to >= from ? to - from : to + 2 * blockCount - from; }
  uint32_t After(uint32_t counter) const { return counter + 1 == 2 * blockCount ? 0 : counter + 1; }
  void Step(std::atomic<uint32_t>& counter) const {
    counter.store(After(counter.load(std::memory_order_relaxed)), std::memory_order_release);
  }
  SPoolBlock At(size_t position, uint32_t counter) {
    const size_t block = (counter < blockCount ? counter : counter - blockCount) * positionCount + position;
    return {storage.Data() + block * kBlockBytes, &notes[block]};
  }

  CLargeBytes storage;
  std::unique_ptr<SBlockNote[]> notes;
  size_t positionCount = 0;
  uint32_t blockCount = 0;
  alignas(kCacheLineBytes) Counters filled{};   // written by the filling thread
  alignas(kCacheLineBytes) Counters emptied{};  // written by the emptying one
};

}  // namespace zelk
