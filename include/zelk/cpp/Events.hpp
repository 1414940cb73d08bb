/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * The queue of events.
 */
#ifndef ZELK_CPP_EVENTS_HPP
#define ZELK_CPP_EVENTS_HPP

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/Waiting.hpp"

namespace zelkapi {

/** Events of this queue's own, beside those of ZelkEvent. */
enum OwnEvent : std::uint32_t {
  kOverflow = 0x10001,     /**< param events were lost at this place, because nobody read; channel -1 */
  kHandlerFailed = 0x10002 /**< code of the application on a library thread threw; param: a FailedHandler */
};

/** Which code threw. */
enum FailedHandler : std::int32_t {
  kEventHandler = 0,  /**< Handlers::onEventOnLibraryThread, told every time */
  kRecordHandler = 1, /**< Handlers::onRecordOnLibraryThread, told the first time */
  kPlayHandler = 2    /**< Handlers::onPlayOnLibraryThread, told the first time */
};

/** Something that happened. */
struct Event {
  std::uint64_t sequence = 0; /**< counts all from 1, lost ones too; of an overflow that of the first lost */
  std::int64_t timeUs = 0;    /**< when it came: microseconds since 1970 UTC; of an overflow that of the first lost */
  std::int32_t channel = -1;  /**< -1: of no channel */
  std::uint32_t code = 0;     /**< a ZelkEvent or an OwnEvent */
  std::int32_t param = 0;     /**< see ZelkEvent */

  /** When it came. */
  std::chrono::system_clock::time_point time() const {
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::microseconds(timeUs)));
  }
};

/**
 * Events on their way from the library's threads to those of the application. Any number of threads put and take; those
 * that one thread puts are taken in their order. Bounded: what finds no room is counted, and a kOverflow stands in its
 * place. Who puts waits for no reader: the lock is held while some events are copied, never longer.
 */
class Events {
 public:
  static constexpr std::size_t kRoom = 65536; /**< events of the queue that a Library has */

  /** Takes nothing before begin(). */
  explicit Events(std::size_t room = kRoom) : slots(std::max<std::size_t>(room, 1)) {}
  Events(const Events&) = delete;
  Events& operator=(const Events&) = delete;

  /**
   * Waits for the next event.
   * @return nothing when the time is over, wake() was called or the library was shut down (isRunning())
   */
  std::optional<Event> next(std::chrono::milliseconds timeout = kForever) {
    Event event;
    return take(&event, 1, timeout) == 1 ? std::optional<Event>(event) : std::nullopt;
  }

  /** Waits until there are events and takes up to room of them; 0 where next() says nothing. */
  std::size_t take(Event* to, std::size_t room, std::chrono::milliseconds timeout = kForever) {
    const detail::Deadline deadline(timeout);
    detail::Interruption::Ticket ticket;
    std::unique_lock<std::mutex> held(lock);
    if (!interruption.enter(ticket)) {
      return 0;
    }
    ++waiting;
    deadline.wait(filled, held, [&] { return hasSome() || interruption.isOver(ticket); });
    --waiting;
    std::size_t copied = 0;
    while (copied < room && hasSome() && !interruption.isOver(ticket)) {
      copied += copySome(to + copied, (std::min)(room - copied, kCopiedAtOnce));
      held.unlock();  // whoever puts gets in between
      held.lock();
    }
    return copied;
  }

  /** Ends every wait; where nobody waits, the next one ends at once. Not in a signal handler. */
  void wake() {
    const std::lock_guard<std::mutex> held(lock);
    interruption.wake(waiting > 0);
    filled.notify_all();
  }

  /** False when there is nothing to wait for any more. */
  bool isRunning() const {
    const std::lock_guard<std::mutex> held(lock);
    return interruption.isRunning();
  }

  /** How many events were lost since the start. */
  std::uint64_t lost() const {
    const std::lock_guard<std::mutex> held(lock);
    return lostEvents;
  }

  /** An event of now that stands in no queue: its sequence is 0. */
  static Event stamped(std::int32_t channel, std::uint32_t code, std::int32_t param) noexcept {
    return {0, nowUs(), channel, code, param};
  }

  /** Puts an event; any thread. For an application's own events too, whose codes begin at 0x20000. */
  void put(std::int32_t channel, std::uint32_t code, std::int32_t param) noexcept {
    bool someoneWaits = false;
    {
      const std::lock_guard<std::mutex> held(lock);
      if (!interruption.isRunning()) {
        return;
      }
      store(channel, code, param);
      someoneWaits = waiting > 0;
    }
    if (someoneWaits) {
      filled.notify_one();
    }
  }

  /** Empties the queue and takes events from now on. Library does this. */
  void begin() {
    const std::lock_guard<std::mutex> held(lock);
    first = count = 0;
    arrived = stored = taken = lostEvents = 0;
    interruption.begin();
  }

  /** Ends every wait, and takes no event any more. Library does this. */
  void end() {
    const std::lock_guard<std::mutex> held(lock);
    interruption.end();
    filled.notify_all();
  }

 private:
  struct Slot {
    Event event;
    std::int64_t gapUs = 0;  // when the first of those was lost that are missing in front of it
  };

  static constexpr std::size_t kCopiedAtOnce = 256;

  static std::int64_t nowUs() noexcept {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  }

  // A loss at the end is something to read too.
  bool hasSome() const { return count > 0 || arrived != stored; }

  void store(std::int32_t channel, std::uint32_t code, std::int32_t param) noexcept {
    const std::int64_t now = nowUs();
    const bool hasGap = arrived != stored;
    ++arrived;
    if (count == slots.size()) {
      ++lostEvents;
      gapUs = hasGap ? gapUs : now;
      return;
    }
    Slot& slot = slots[(first + count) % slots.size()];
    slot.event = {arrived, now, channel, code, param};
    slot.gapUs = gapUs;
    stored = arrived;
    ++count;
  }

  std::size_t copySome(Event* to, std::size_t room) {
    std::size_t copied = 0;
    while (copied < room && hasSome()) {
      const Slot& slot = slots[first];
      const std::uint64_t next = count > 0 ? slot.event.sequence : arrived + 1;
      if (next != taken + 1) {
        to[copied++] = overflow(next - taken - 1, count > 0 ? slot.gapUs : gapUs);
        taken = next - 1;
        stored = count > 0 ? stored : arrived;
        continue;
      }
      to[copied++] = slot.event;
      taken = next;
      first = (first + 1) % slots.size();
      --count;
    }
    return copied;
  }

  Event overflow(std::uint64_t missing, std::int64_t timeUs) const {
    constexpr std::uint64_t kMost = (std::numeric_limits<std::int32_t>::max)();
    return {taken + 1, timeUs, -1, kOverflow, static_cast<std::int32_t>((std::min)(missing, kMost))};
  }

  mutable std::mutex lock;
  std::condition_variable filled;
  detail::Interruption interruption;
  std::size_t waiting = 0;
  std::vector<Slot> slots;
  std::size_t first = 0;
  std::size_t count = 0;
  std::uint64_t arrived = 0;     // sequence number of the last that came
  std::uint64_t stored = 0;      // of the last that found room; behind it only lost ones came
  std::uint64_t taken = 0;       // of the last that was read, or told of as lost
  std::uint64_t lostEvents = 0;  // since the start
  std::int64_t gapUs = 0;        // when the first of the last gap was lost
};

}  // namespace zelkapi

#endif
