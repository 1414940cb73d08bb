// SPDX-License-Identifier: GPL-2.0-only
#include "stream/block_pool.h"

#include <cassert>
#include <new>

namespace zelk {
namespace {

constexpr uintptr_t kMarkBit = 1;
constexpr uint32_t kSpareEntries = 2;

}  // namespace

bool CBlockPool::CRing::Create(uint32_t entryCount) {
  Release();
  entries.reset(new (std::nothrow) SEntry[entryCount]);
  if (entries == nullptr)
    return false;
  capacity = entryCount;
  return true;
}

void CBlockPool::CRing::Release() {
  entries.reset();
  capacity = 0;
  readIndex.store(0, std::memory_order_relaxed);
  writeIndex.store(0, std::memory_order_relaxed);
}

void CBlockPool::CRing::Push(SEntry entry) {
  const uint32_t at = writeIndex.load(std::memory_order_relaxed);
  assert(capacity != 0 && Next(at) != readIndex.load(std::memory_order_relaxed));
  entries[at] = entry;
  writeIndex.store(Next(at), std::memory_order_release);
}

bool CBlockPool::CRing::Pop(SEntry& entry) {
  const uint32_t at = readIndex.load(std::memory_order_relaxed);
  if (at == writeIndex.load(std::memory_order_acquire))
    return false;
  entry = entries[at];
  // Release: the entry is read before the pusher, far away by the spare entries, can come to write it again.
  readIndex.store(Next(at), std::memory_order_release);
  return true;
}

uint32_t CBlockPool::CRing::Count() const {
  const uint32_t read = readIndex.load(std::memory_order_acquire);
  const uint32_t write = writeIndex.load(std::memory_order_acquire);
  return write >= read ? write - read : write + capacity - read;
}

bool CBlockPool::Create(uint32_t blockCount, uint32_t bytesPerBlock) {
  Release();
  // The mark bit needs even addresses, so blocks stand on even distances.
  const size_t stride = size_t{bytesPerBlock} + (bytesPerBlock & kMarkBit);
  const uint32_t entryCount = blockCount + kSpareEntries;
  if (entryCount < blockCount || (stride != 0 && blockCount > SIZE_MAX / stride))
    return false;
  storage.reset(new (std::nothrow) uint8_t[stride * blockCount]());
  if (storage == nullptr || !ready.Create(entryCount) || !free.Create(entryCount)) {
    Release();
    return false;
  }
  blockBytes = bytesPerBlock;
  for (uint32_t i = 0; i < blockCount; ++i)
    PushFree(storage.get() + i * stride);
  return true;
}

void CBlockPool::Release() {
  storage.reset();
  blockBytes = 0;
  ready.Release();
  free.Release();
}

uint8_t* CBlockPool::PopFree() {
  SEntry entry;
  return free.Pop(entry) ? reinterpret_cast<uint8_t*>(entry.markedBlock) : nullptr;
}

SReadyBlock CBlockPool::PopReady() {
  SEntry entry;
  if (!ready.Pop(entry))
    return {};
  return {reinterpret_cast<uint8_t*>(entry.markedBlock & ~kMarkBit), (entry.markedBlock & kMarkBit) != 0, entry.tag};
}

CBlockPool::SEntry CBlockPool::Entry(uint8_t* block, bool mark, uint32_t tag) {
  return {reinterpret_cast<uintptr_t>(block) | (mark ? kMarkBit : 0), tag};
}

}  // namespace zelk
