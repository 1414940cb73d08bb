/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * Room for received sound that waits to be read.
 */
#ifndef ZELK_CPP_BLOCK_RING_HPP
#define ZELK_CPP_BLOCK_RING_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "zelk/ZelkApi.h"

namespace zelkapi {
/** @cond INTERNAL */
namespace detail {

/**
 * Blocks of 160 bytes on their way from one thread that puts to one that takes, without a lock. A block that finds no
 * room is lost and counted; the reader learns where.
 */
class BlockRing {
 public:
  explicit BlockRing(std::size_t blocks) : numbers(blocks), bytes(blocks * kBytes) {}

  std::size_t room() const noexcept { return numbers.size(); }
  /** Blocks that can be taken, for any thread. */
  std::size_t count() const noexcept { return static_cast<std::size_t>(written.load() - read.load()); }
  std::uint64_t lost() const noexcept { return lostBlocks.load(std::memory_order_relaxed); }

  /** For the thread that puts. */
  void put(const std::uint8_t* block) noexcept {
    const std::uint64_t number = arrived++;
    const std::uint64_t at = written.load(std::memory_order_relaxed);
    if (at - read.load(std::memory_order_acquire) == numbers.size()) {
      lostBlocks.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    const std::size_t slot = slotOf(at);
    std::memcpy(&bytes[slot * kBytes], block, kBytes);
    numbers[slot] = number;
    written.store(at + 1);  // in one order with what a waiting thread looks at
  }

  /** For the thread that takes: up to room blocks without a gap; missing: how many are lost in front of the first. */
  std::size_t take(std::uint8_t* to, std::size_t most, std::uint64_t& missing) noexcept {
    const std::uint64_t from = read.load(std::memory_order_relaxed);
    const std::uint64_t end = written.load(std::memory_order_acquire);
    std::size_t taken = 0;
    missing = 0;
    for (std::uint64_t at = from; at != end && taken < most; ++at, ++taken, ++expected) {
      const std::uint64_t number = numbers[slotOf(at)];
      if (number != expected) {
        if (taken > 0) {
          break;
        }
        missing = number - expected;
        expected = number;
      }
      std::memcpy(to + taken * kBytes, &bytes[slotOf(at) * kBytes], kBytes);
    }
    read.store(from + taken, std::memory_order_release);
    return taken;
  }

 private:
  static constexpr std::size_t kBytes = ZELK_BLOCK_BYTES;

  std::size_t slotOf(std::uint64_t at) const noexcept { return static_cast<std::size_t>(at % numbers.size()); }

  std::vector<std::uint64_t> numbers;  // of the block in each slot, counted with the lost ones
  std::vector<std::uint8_t> bytes;
  std::atomic<std::uint64_t> written{0};
  std::atomic<std::uint64_t> read{0};
  std::atomic<std::uint64_t> lostBlocks{0};
  std::uint64_t arrived = 0;   // of the thread that puts
  std::uint64_t expected = 0;  // of the thread that takes
};

}  // namespace detail
/** @endcond */
}  // namespace zelkapi

#endif
