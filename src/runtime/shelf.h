// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

#include "runtime/prefetch.h"

namespace zelk {

// Memory for a limited number of equal objects that are walked together: they stand side by side, in the order in which
// they are made. Spread over the heap, each would cost a walk a page of its own.
// Thread: any; nothing blocks. Takes memory only as far as it was ever filled.
template <size_t kPlaceBytes, size_t kPlaces>
class CShelf {
 public:
  // The first free place, or null when there is none.
  void* Take() {
    for (size_t i = 0; i < kPlaces; ++i) {
      if (!taken[i].load(std::memory_order_relaxed) && !taken[i].exchange(true, std::memory_order_acquire))
        return &places[i * kPlaceBytes];
    }
    return nullptr;
  }
  // False when the memory is not from here.
  bool Return(void* memory) {
    for (size_t i = 0; i < kPlaces; ++i) {
      if (&places[i * kPlaceBytes] == memory) {
        taken[i].store(false, std::memory_order_release);
        return true;
      }
    }
    return false;
  }

 private:
  static_assert(kPlaceBytes % kCacheLineBytes == 0);

  alignas(kCacheLineBytes) std::array<std::byte, kPlaceBytes * kPlaces> places{};
  std::array<std::atomic<bool>, kPlaces> taken{};
};

}  // namespace zelk
