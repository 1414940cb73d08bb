// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/memory/large_memory.h"
#include "platform/mutex.h"

namespace zelk {

// Memory for queued audio. A pacer reads 160 bytes of each channel's audio in turn: with every piece on a page of its
// own, finding the pages would cost more than reading them. So where many pieces are queued they stand in slabs of a
// large page each, in cells of one size a slab:
//
//   slab   | record | cell 0 | cell 1 | ...        cell   | SPrefix | the piece |
//
// Few pieces, and those larger than a slab, come from the heap. A slab goes back to the system when its last cell
// comes back, one is kept as long as anything is queued, and nothing when nothing is.
// Thread: any. Take and Return hold a lock for a few instructions; a new slab is a system call under it.
class CAudioStore {
 public:
  static constexpr uint32_t kFew = 64;        // pieces
  static constexpr size_t kPrefixBytes = 16;  // beside each

  constexpr CAudioStore() = default;
  CAudioStore(const CAudioStore&) = delete;
  CAudioStore& operator=(const CAudioStore&) = delete;

  // Aligned to 16 bytes; null when there is no memory.
  void* Take(size_t bytes);
  void Return(void* memory);
  // As of now, the one that is kept included.
  uint32_t SlabCount() const;

 private:
  static constexpr size_t kClasses = 24;
  struct SSlab;
  struct alignas(16) SPrefix {
    SSlab* slab = nullptr;    // null: from the heap
    SPrefix* next = nullptr;  // while the cell is free
  };

  static size_t CellBytes(size_t sizeClass);
  static size_t ClassOf(size_t bytes);
  SPrefix* TakeCell(size_t bytes) ZELK_REQUIRES(lock);
  SSlab* OpenSlab(size_t sizeClass) ZELK_REQUIRES(lock);
  // The slab to be given back to the system, if any.
  SSlab* ReturnCell(SPrefix& cell) ZELK_REQUIRES(lock);

  mutable CMutex lock;
  uint32_t pieces ZELK_GUARDED_BY(lock) = 0;  // on the heap and in slabs
  uint32_t slabs ZELK_GUARDED_BY(lock) = 0;
  SSlab* kept ZELK_GUARDED_BY(lock) = nullptr;                   // has no cell in use
  std::array<SSlab*, kClasses> open ZELK_GUARDED_BY(lock) = {};  // of each class those that have room
};

// The process's.
CAudioStore& AudioStore();

}  // namespace zelk
