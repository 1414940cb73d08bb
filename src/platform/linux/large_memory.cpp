// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/large_memory.h"

#include <sys/mman.h>

#include <cstdint>

namespace zelk {

// A page too much is asked for, and what stands before and behind the aligned part given back.
void* TakeLargeMemory(size_t bytes) {
  const size_t asked = bytes + kLargePageBytes;
  void* const memory = mmap(nullptr, asked, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED)
    return nullptr;
  auto* const first = static_cast<uint8_t*>(memory);
  const size_t before = (kLargePageBytes - reinterpret_cast<uintptr_t>(memory) % kLargePageBytes) % kLargePageBytes;
  if (before != 0)
    munmap(first, before);
  munmap(first + before + bytes, asked - before - bytes);
  madvise(first + before, bytes, MADV_HUGEPAGE);  // a wish: it works without
  return first + before;
}

void GiveLargeMemory(void* memory, size_t bytes) {
  munmap(memory, bytes);
}

}  // namespace zelk
