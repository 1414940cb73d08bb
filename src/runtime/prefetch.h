// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>

namespace zelk {

constexpr size_t kCacheLineBytes = 64;

// Asks the processor for memory that will be read soon; null is left out. Nothing is read: the memory may be gone.
// Thread: any.
inline void Prefetch(const void* memory, size_t bytes = 1) {
  const auto* const first = static_cast<const char*>(memory);
  for (size_t at = 0; memory != nullptr && at < bytes; at += kCacheLineBytes) {
    __builtin_prefetch(first + at);
  }
}

inline void PrefetchToWrite(void* memory, size_t bytes) {
  auto* const first = static_cast<char*>(memory);
  for (size_t at = 0; at < bytes; at += kCacheLineBytes) {
    __builtin_prefetch(first + at, 1);
  }
}

}  // namespace zelk
