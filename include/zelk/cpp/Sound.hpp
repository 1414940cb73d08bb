/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * Received sound of chosen channels.
 */
#ifndef ZELK_CPP_SOUND_HPP
#define ZELK_CPP_SOUND_HPP

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/BlockRing.hpp"
#include "zelk/cpp/Error.hpp"
#include "zelk/cpp/Waiting.hpp"

namespace zelkapi {

/** Blocks that follow on each other. */
struct Blocks {
  std::vector<std::uint8_t> alaw; /**< 160 bytes each, 20 ms */
  std::uint64_t lostBefore = 0;   /**< blocks that were lost directly in front of them: 20 ms each are missing */
};

/**
 * Received sound of chosen channels, each in a ring of its own. The library's threads put into a ring without a lock
 * and without waiting; any thread of the application reads. What finds no room is lost and counted.
 */
class Sound {
 public:
  static constexpr std::size_t kMostBlocks = 65536; /**< the longest ring, some 21 minutes */

  Sound() = default;
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;
  // NOLINTNEXTLINE(bugprone-exception-escape): only a lock that is broken throws, and nothing holds after that
  ~Sound() { clear(); }

  /** Keeps a channel's sound from now on, at most so many blocks of 20 ms; what was kept before is dropped. */
  void keep(int channel, std::size_t blocks) {
    if (blocks == 0 || blocks > kMostBlocks) {
      throw BadArgument("a ring has 1 to 65536 blocks");
    }
    set(channel, std::make_unique<detail::BlockRing>(blocks));
  }
  /** Keeps it no longer, and frees the memory. */
  void drop(int channel) { set(channel, nullptr); }

  /**
   * Takes up to room blocks of 160 bytes, the oldest first and without a gap between them. Does not wait.
   * @param channel     one whose sound is kept
   * @param to          gets the blocks
   * @param room        how many fit there
   * @param lostBefore  gets the number of blocks lost directly in front of the first
   * @return how many; throws NotRecording
   */
  std::size_t read(int channel, std::uint8_t* to, std::size_t room, std::uint64_t& lostBefore) {
    return withRing(channel, [&](detail::BlockRing& ring) { return ring.take(to, room, lostBefore); });
  }
  /** The same: all that is kept up to the next gap, or as many as that. */
  Blocks read(int channel, std::size_t most = kMostBlocks) {
    return withRing(channel, [&](detail::BlockRing& ring) {
      Blocks blocks;
      blocks.alaw.resize((std::min)(most, ring.count()) * ZELK_BLOCK_BYTES);
      const std::size_t taken = ring.take(blocks.alaw.data(), blocks.alaw.size() / ZELK_BLOCK_BYTES, blocks.lostBefore);
      blocks.alaw.resize(taken * ZELK_BLOCK_BYTES);
      return blocks;
    });
  }

  /** Blocks that found no room since the channel's ring was set. */
  std::uint64_t lost(int channel) {
    return withRing(channel, [](const detail::BlockRing& ring) { return ring.lost(); });
  }

  /**
   * Waits until some channels have so many blocks, or a full ring where that is shorter.
   * @param blocks    how many
   * @param channels  gets up to room of their numbers; where not all fit, the next call goes on behind the last
   * @param room      how many fit there
   * @param timeout   the longest wait
   * @return how many; 0 when the time is over, wake() was called or the library was shut down
   */
  std::size_t wait(std::size_t blocks, std::int32_t* channels, std::size_t room,
                   std::chrono::milliseconds timeout = kForever) {
    const detail::Deadline deadline(timeout);
    detail::Interruption::Ticket ticket;
    std::unique_lock<std::mutex> held(lock);
    if (!interruption.enter(ticket)) {
      return 0;
    }
    ++waiting;
    wanted = (std::min)(wanted.load(), blocks);
    std::size_t found = 0;
    for (bool hasTime = true;;) {
      const std::uint64_t seen = changes;
      held.unlock();
      signalled = false;  // before the look: what comes after it signals again
      found = find(blocks, channels, room);
      held.lock();
      if (found > 0 || !hasTime || interruption.isOver(ticket)) {
        break;
      }
      hasTime = deadline.wait(changed, held, [&] { return seen != changes || interruption.isOver(ticket); });
    }
    if (--waiting == 0) {
      wanted = kNothing;
    }
    return interruption.isOver(ticket) ? 0 : found;
  }
  /** The same: the numbers of all of them. */
  std::vector<std::int32_t> wait(std::size_t blocks, std::chrono::milliseconds timeout = kForever) {
    std::vector<std::int32_t> channels(ZELK_MAX_CHANNELS);
    channels.resize(wait(blocks, channels.data(), channels.size(), timeout));
    return channels;
  }

  /** Ends every wait; where nobody waits, the next one ends at once. Not in a signal handler. */
  void wake() {
    const std::lock_guard<std::mutex> held(lock);
    interruption.wake(waiting > 0);
    changed.notify_all();
  }

  /** Puts a block of 160 bytes; one thread at a time for each channel. Library does this. */
  void put(std::uint32_t channel, const std::uint8_t* block) noexcept {
    if (channel >= places.size() || places[channel].ring.load(std::memory_order_relaxed) == nullptr) {
      return;
    }
    Place& place = places[channel];
    bool isEnough = false;
    ++place.inside;  // before the ring is looked up: whoever takes it away waits until this is over
    if (detail::BlockRing* const ring = place.ring.load()) {
      ring->put(block);
      isEnough = ring->count() >= (std::min)(wanted.load(), ring->room());
    }
    --place.inside;
    if (isEnough && waiting.load() > 0 && !signalled.exchange(true)) {
      const std::lock_guard<std::mutex> held(lock);
      ++changes;
      changed.notify_all();
    }
  }

  /** Lets threads wait from now on. Library does this. */
  void begin() {
    const std::lock_guard<std::mutex> held(lock);
    interruption.begin();
  }
  /** Ends every wait. Library does this. */
  void end() {
    const std::lock_guard<std::mutex> held(lock);
    interruption.end();
    changed.notify_all();
  }
  /** Drops all that is kept. */
  void clear() {
    for (std::size_t channel = 0; channel < places.size(); ++channel) {
      set(static_cast<int>(channel), nullptr);
    }
  }

 private:
  static constexpr std::size_t kNothing = (std::numeric_limits<std::size_t>::max)();

  struct Place {
    std::atomic<detail::BlockRing*> ring{nullptr};  // set under the readers' lock
    std::atomic<std::uint32_t> inside{0};           // threads that put just now
    std::mutex readers;                             // never taken by one that puts
  };

  Place& placeOf(int channel) {
    if (channel < 0 || channel >= static_cast<int>(places.size())) {
      throw BadChannel(channel);
    }
    return places[static_cast<std::size_t>(channel)];
  }

  void set(int channel, std::unique_ptr<detail::BlockRing> ring) {
    Place& place = placeOf(channel);
    const std::lock_guard<std::mutex> held(place.readers);
    const std::unique_ptr<detail::BlockRing> before(place.ring.exchange(ring.release()));
    while (before && place.inside.load() != 0) {
      std::this_thread::yield();  // the copy of one block
    }
  }

  template <class Use>
  auto withRing(int channel, Use use) -> decltype(use(std::declval<detail::BlockRing&>())) {
    Place& place = placeOf(channel);
    const std::lock_guard<std::mutex> held(place.readers);
    detail::BlockRing* const ring = place.ring.load();
    if (ring == nullptr) {
      throw NotRecording(channel);
    }
    return use(*ring);
  }

  bool hasEnough(Place& place, std::size_t blocks) {
    if (place.ring.load(std::memory_order_relaxed) == nullptr) {
      return false;
    }
    const std::lock_guard<std::mutex> held(place.readers);
    const detail::BlockRing* const ring = place.ring.load();
    return ring != nullptr && ring->count() >= (std::min)(blocks, ring->room());
  }

  std::size_t find(std::size_t blocks, std::int32_t* channels, std::size_t room) {
    const std::size_t start = firstLooked.load();
    std::size_t found = 0;
    for (std::size_t i = 0; i < places.size() && found < room; ++i) {
      const std::size_t channel = (start + i) % places.size();
      if (hasEnough(places[channel], blocks)) {
        channels[found++] = static_cast<std::int32_t>(channel);
        firstLooked = channel + 1;
      }
    }
    return found;
  }

  std::array<Place, ZELK_MAX_CHANNELS> places;
  std::mutex lock;  // held for a moment, never while sound is copied
  std::condition_variable changed;
  detail::Interruption interruption;
  std::uint64_t changes = 0;
  std::atomic<std::size_t> waiting{0};
  std::atomic<std::size_t> wanted{kNothing};  // the fewest blocks that one waits for
  std::atomic<bool> signalled{false};         // those who wait know already
  std::atomic<std::size_t> firstLooked{0};
};

}  // namespace zelkapi

#endif
