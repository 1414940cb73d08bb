#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "formats/g711.h"
#include "runtime/e1.h"
#include "stream/backlog_watch.h"
#include "stream/fill_slots.h"
#include "stream/media_hook.h"

namespace zelk {

// What outlives the opening and closing of a card's audio, and is set from any thread while the audio threads run.
// Thread: any; all atomic.
struct SAudioControls {
  std::atomic<IMediaHook*> hook{nullptr};
  std::array<std::atomic<bool>, kMaxTrunks> echoSwitch{};
  // Counts the flushes of a position. Audio that was asked for under an older count is sent as silence.
  std::array<std::atomic<uint32_t>, kMaxPositions> flushEpoch{};
  // Moves after any position's count, so that the sender need not look at all of them before every packet.
  std::atomic<uint32_t> flushes{0};
  // Number of the next packet sent; never starts again, whatever the card does.
  std::atomic<uint32_t> sendSequence{0};
  std::atomic<uint64_t> backlogLine{CBacklogWatch::kNoLine};  // when the last one was written
  std::atomic<bool> buffersReported{false};                   // what the system granted for the socket
  CFillSlots fills;

  // A stop inside the play callback overwrites the block under fill on the spot: what is written into it later stays.
  void Flush(size_t position) {
    flushEpoch[position].fetch_add(1, std::memory_order_release);
    flushes.fetch_add(1, std::memory_order_release);
    if (SBlockFill* own = fills.Own(position)) {
      std::memset(own->data, kIdleByte, kBlockBytes);
      own->taken.fill(kIdleByte);
      ++own->flushCount;
    }
  }
};

}  // namespace zelk
