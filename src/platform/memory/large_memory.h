// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace zelk {

constexpr size_t kLargePageBytes = size_t{2} << 20;

// In builds that look for use after release, which they find on the heap alone: stores of our own stand aside there.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryIsWatched = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kMemoryIsWatched = true;
#else
constexpr bool kMemoryIsWatched = false;
#endif
#else
constexpr bool kMemoryIsWatched = false;
#endif

// Memory of its own for bytes that are read here and there: in large pages where the system has them to give, so that
// the processor need not look up a page for each read. bytes is a multiple of kLargePageBytes. Zeroed; null when there
// is no memory. Thread: any; a system call each.
void* TakeLargeMemory(size_t bytes);
// The whole of what TakeLargeMemory gave.
void GiveLargeMemory(void* memory, size_t bytes);

// Zeroed bytes that one object owns: in large pages where at least half a one is needed, else from the heap.
// Thread: the owner's.
class CLargeBytes {
 public:
  CLargeBytes() = default;
  ~CLargeBytes() { Release(); }
  CLargeBytes(const CLargeBytes&) = delete;
  CLargeBytes& operator=(const CLargeBytes&) = delete;

  // Releases what was there before; false, and nothing, when there is no memory.
  bool Create(size_t bytes) {
    Release();
    if (bytes >= kLargePageBytes / 2) {
      largeBytes = (bytes + kLargePageBytes - 1) / kLargePageBytes * kLargePageBytes;
      data = static_cast<uint8_t*>(TakeLargeMemory(largeBytes));
    } else {
      data = new (std::nothrow) uint8_t[bytes]();
    }
    return data != nullptr;
  }
  void Release() {
    if (data != nullptr && largeBytes != 0)
      GiveLargeMemory(data, largeBytes);
    else
      delete[] data;
    data = nullptr;
    largeBytes = 0;
  }
  uint8_t* Data() const { return data; }

 private:
  uint8_t* data = nullptr;
  size_t largeBytes = 0;  // 0: from the heap
};

}  // namespace zelk
