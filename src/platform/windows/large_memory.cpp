// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/large_memory.h"

#include <windows.h>

namespace zelk {

// Large pages need a privilege that services seldom have, and are then asked for otherwise: ordinary ones are given.
void* TakeLargeMemory(size_t bytes) {
  return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void GiveLargeMemory(void* memory, size_t) {
  VirtualFree(memory, 0, MEM_RELEASE);
}

}  // namespace zelk
