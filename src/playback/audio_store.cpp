// SPDX-License-Identifier: GPL-2.0-only
#include "playback/audio_store.h"

#include <new>
#include <utility>

namespace zelk {
namespace {

constinit CAudioStore store;

}  // namespace

// The slab's record, at its begin. Slabs of a class that have room are a list.
struct CAudioStore::SSlab {
  size_t sizeClass;
  uint32_t cells;  // that it has room for
  uint32_t used;   // cells in use
  uint32_t fresh;  // the first cell that never was: those behind it take no memory yet
  SPrefix* free;   // cells that came back
  SSlab* next;
  SSlab* previous;

  bool HasRoom() const { return used < cells; }
};

// 4096, 3072, 2048, 1536, ... 3, 2, 1 cells a slab: from the class's number, 0 for the smallest.
size_t CAudioStore::CellBytes(size_t sizeClass) {
  const size_t power = size_t{4096} >> (sizeClass / 2);
  const size_t cells = sizeClass % 2 == 0 ? power : power * 3 / 4;
  return (kLargePageBytes - sizeof(SSlab)) / cells / alignof(SPrefix) * alignof(SPrefix);
}

size_t CAudioStore::ClassOf(size_t bytes) {
  size_t sizeClass = 0;
  while (sizeClass < kClasses && CellBytes(sizeClass) < bytes)
    ++sizeClass;
  return sizeClass;
}

void* CAudioStore::Take(size_t bytes) {
  static_assert(sizeof(SPrefix) == kPrefixBytes);
  if (bytes > SIZE_MAX - sizeof(SPrefix))
    return nullptr;
  const size_t whole = bytes + sizeof(SPrefix);
  SPrefix* piece = nullptr;
  {
    const CScopedLock<CMutex> held(lock);
    if (!kMemoryIsWatched && pieces >= kFew)
      piece = TakeCell(whole);
    ++pieces;
  }
  if (piece == nullptr) {
    void* const memory = ::operator new(whole, std::nothrow);
    piece = memory != nullptr ? ::new (memory) SPrefix : nullptr;
  }
  if (piece != nullptr)
    return piece + 1;
  const CScopedLock<CMutex> held(lock);
  --pieces;
  return nullptr;
}

CAudioStore::SPrefix* CAudioStore::TakeCell(size_t bytes) {
  const size_t sizeClass = ClassOf(bytes);
  SSlab* const slab = sizeClass == kClasses        ? nullptr
                      : open[sizeClass] != nullptr ? open[sizeClass]
                                                   : OpenSlab(sizeClass);
  if (slab == nullptr)
    return nullptr;
  SPrefix* cell = slab->free;
  if (cell != nullptr)
    slab->free = cell->next;
  else
    cell = ::new (reinterpret_cast<uint8_t*>(slab + 1) + CellBytes(sizeClass) * slab->fresh++) SPrefix;
  ++slab->used;
  if (!slab->HasRoom()) {
    open[sizeClass] = slab->next;
    if (slab->next != nullptr)
      slab->next->previous = nullptr;
  }
  cell->slab = slab;
  return cell;
}

CAudioStore::SSlab* CAudioStore::OpenSlab(size_t sizeClass) {
  void* memory = std::exchange(kept, nullptr);
  if (memory == nullptr) {
    memory = TakeLargeMemory(kLargePageBytes);
    slabs += memory != nullptr ? 1 : 0;
  }
  if (memory == nullptr)
    return nullptr;
  const auto cells = static_cast<uint32_t>((kLargePageBytes - sizeof(SSlab)) / CellBytes(sizeClass));
  open[sizeClass] = ::new (memory) SSlab{sizeClass, cells, 0, 0, nullptr, nullptr, nullptr};
  return open[sizeClass];
}

void CAudioStore::Return(void* memory) {
  SPrefix* const piece = static_cast<SPrefix*>(memory) - 1;
  const bool isCell = piece->slab != nullptr;
  SSlab* unused[2] = {};
  {
    const CScopedLock<CMutex> held(lock);
    unused[0] = isCell ? ReturnCell(*piece) : nullptr;
    if (--pieces == 0)
      unused[1] = std::exchange(kept, nullptr);
    slabs -= (unused[0] != nullptr ? 1U : 0U) + (unused[1] != nullptr ? 1U : 0U);
  }
  for (SSlab* const slab : unused) {
    if (slab != nullptr)
      GiveLargeMemory(slab, kLargePageBytes);
  }
  if (!isCell)
    ::operator delete(piece);
}

CAudioStore::SSlab* CAudioStore::ReturnCell(SPrefix& cell) {
  SSlab& slab = *cell.slab;
  SSlab*& first = open[slab.sizeClass];
  if (!slab.HasRoom()) {
    slab.previous = nullptr;
    slab.next = first;
    if (first != nullptr)
      first->previous = &slab;
    first = &slab;
  }
  cell.next = slab.free;
  slab.free = &cell;
  if (--slab.used != 0)
    return nullptr;
  (slab.previous != nullptr ? slab.previous->next : first) = slab.next;
  if (slab.next != nullptr)
    slab.next->previous = slab.previous;
  return std::exchange(kept, &slab);
}

uint32_t CAudioStore::SlabCount() const {
  const CScopedLock<CMutex> held(lock);
  return slabs;
}

CAudioStore& AudioStore() {
  return store;
}

}  // namespace zelk
