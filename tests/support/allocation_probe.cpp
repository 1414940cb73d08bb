// SPDX-License-Identifier: GPL-2.0-only
#include "support/allocation_probe.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t allocationCount = 0;
thread_local size_t largestAllocation = 0;
thread_local uint32_t failCountdown = 0;
thread_local bool failed = false;
bool (*judge)() = nullptr;

void* Allocate(size_t size) noexcept {
  ++allocationCount;
  largestAllocation = std::max(largestAllocation, size);
  if (failCountdown > 0 && --failCountdown == 0) {
    failed = true;
    return nullptr;
  }
  if (judge != nullptr && judge()) {
    return nullptr;
  }
  return std::malloc(size > 0 ? size : 1);
}

void* AllocateOrThrow(size_t size) {
  void* const memory = Allocate(size);
  if (!memory) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

void* operator new(size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace support {

uint64_t AllocationCount() {
  return allocationCount;
}
size_t LargestAllocation() {
  return largestAllocation;
}
void ForgetLargestAllocation() {
  largestAllocation = 0;
}
void FailAllocation(uint32_t n) {
  failCountdown = n;
  failed = false;
}
bool AllocationFailed() {
  return failed;
}
void SetAllocationJudge(bool (*mustFail)()) {
  judge = mustFail;
}

}  // namespace support
