// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace zelk {

// A block popped from a pool's ready ring, with what was pushed beside it.
struct SReadyBlock {
  uint8_t* data = nullptr;  // null: the ring was empty
  bool mark = false;
  uint32_t tag = 0;
};

// A fixed set of equal blocks that circulate between two rings: free and ready. Each ring has one pushing and one
// popping thread and no lock; a push publishes the block's bytes to the thread that pops it. Thread: Create and Release
// the opener, while no other thread uses the pool; each push and each pop one thread. Nothing blocks. Create returns
// false (pool empty) when there is no memory. Owns the blocks' storage.
class CBlockPool {
 public:
  CBlockPool() = default;
  CBlockPool(const CBlockPool&) = delete;
  CBlockPool& operator=(const CBlockPool&) = delete;

  // All blocks zeroed and free. 0 blocks is a pool whose pops always fail.
  bool Create(uint32_t blockCount, uint32_t bytesPerBlock);
  void Release();

  uint8_t* PopFree();  // null when none is free
  void PushFree(uint8_t* block) { free.Push(Entry(block, false, 0)); }
  SReadyBlock PopReady();
  // mark travels in the pointer's lowest bit, tag beside it.
  void PushReady(uint8_t* block, bool mark, uint32_t tag) { ready.Push(Entry(block, mark, tag)); }

  // As of the call; exact for a thread that is the only user.
  uint32_t FreeCount() const { return free.Count(); }
  uint32_t ReadyCount() const { return ready.Count(); }
  uint32_t BlockBytes() const { return blockBytes; }

 private:
  struct SEntry {
    uintptr_t markedBlock = 0;
    uint32_t tag = 0;
  };

  // Two entries more than blocks: full and empty stay apart, and a push can never meet the reader.
  class CRing {
   public:
    bool Create(uint32_t entryCount);
    void Release();
    void Push(SEntry entry);
    bool Pop(SEntry& entry);
    uint32_t Count() const;

   private:
    uint32_t Next(uint32_t index) const { return index + 1 == capacity ? 0 : index + 1; }

    std::unique_ptr<SEntry[]> entries;
    uint32_t capacity = 0;
    std::atomic<uint32_t> readIndex{0};   // written by the popping thread
    std::atomic<uint32_t> writeIndex{0};  // written by the pushing thread
  };

  static SEntry Entry(uint8_t* block, bool mark, uint32_t tag);

  std::unique_ptr<uint8_t[]> storage;
  uint32_t blockBytes = 0;
  CRing ready;
  CRing free;
};

}  // namespace zelk
