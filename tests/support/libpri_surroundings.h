// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

// What libpri has from the C library, in the hands of a test. The test program links libpri_surroundings.cpp.
namespace support {

// libpri's clock is the system's, so much later. False where the system's own cannot be replaced.
bool CanMoveLibpriClock();
void MoveLibpriClock(int64_t milliseconds);

// False in builds whose allocator belongs to a sanitizer or that have another C library.
bool CanReplaceCalloc();
// The n-th calloc of this thread from now on gives null, once; 0 calls it off. True while that has not happened yet.
void FailCalloc(int n);
bool IsCallocFailureDue();

// While it lives, a record that libpri frees on this thread is the one that it gets for its next call.
class CReusingAllocator {
 public:
  CReusingAllocator();
  ~CReusingAllocator();
  CReusingAllocator(const CReusingAllocator&) = delete;
  CReusingAllocator& operator=(const CReusingAllocator&) = delete;

  uint32_t Reused() const;  // how often that was the case
};

}  // namespace support
