// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "formats/g711.h"
#include "platform/thread.h"
#include "runtime/e1.h"
#include "stream/backlog_watch.h"
#include "stream/media_hook.h"

namespace zelk {

// Which block each of a card's pacers is filling, so that a stop that comes from inside the fill finds its own. A pacer
// has an entry for a pass. One that a callback kept over a close keeps its entry until the callback returns, hence more
// than one; when all are in use, a stop inside the callback is treated as one from another thread.
// Thread: an entry's position and fill only the thread whose number stands in it; Own any. Nothing blocks.
class CFillRegister {
 public:
  class CEntry;

  // What the calling thread is filling at this position, or null.
  SBlockFill* Own(size_t position) const {
    const uint64_t self = OwnThreadNumber();
    for (const SFill& each : fills) {
      if (each.thread.load(std::memory_order_relaxed) == self)
        return each.position == position ? each.fill : nullptr;
    }
    return nullptr;
  }

 private:
  struct SFill {
    std::atomic<uint64_t> thread{0};  // 0: free
    size_t position = 0;
    SBlockFill* fill = nullptr;
  };

  std::array<SFill, 4> fills;
};

// One pacer's entry for the length of a pass.
class CFillRegister::CEntry {
 public:
  explicit CEntry(CFillRegister& fillRegister) {
    for (SFill& each : fillRegister.fills) {
      uint64_t nobody = 0;
      if (own == nullptr && each.thread.compare_exchange_strong(nobody, OwnThreadNumber(), std::memory_order_acquire))
        own = &each;
    }
  }
  ~CEntry() {
    if (own != nullptr)
      own->thread.store(0, std::memory_order_release);
  }
  CEntry(const CEntry&) = delete;
  CEntry& operator=(const CEntry&) = delete;

  void Begin(size_t position, SBlockFill& fill) { Set(position, &fill); }
  void End() { Set(0, nullptr); }

 private:
  void Set(size_t position, SBlockFill* fill) {
    if (own != nullptr) {
      own->position = position;
      own->fill = fill;
    }
  }

  SFill* own = nullptr;
};

// What outlives the generations of a card's audio, and is set from any thread while the audio threads run.
// Thread: any; all atomic.
struct SAudioControls {
  uint32_t card = 0;  // its place on the status page; set before the audio begins
  std::atomic<IMediaHook*> hook{nullptr};
  std::array<std::atomic<bool>, kMaxTrunks> echoSwitch{};
  // Counts the flushes of a position. Audio that was asked for under an older count is sent as silence.
  std::array<std::atomic<uint32_t>, kMaxPositions> flushCounts{};
  // Moves after any position's count, so that the sender need not look at all of them before every packet.
  std::atomic<uint32_t> flushes{0};
  // Number of the next packet sent; never starts again, whatever the card does.
  std::atomic<uint32_t> sendSequence{0};
  std::atomic<uint64_t> backlogLine{CBacklogWatch::kNoLine};  // when the last one was written
  std::atomic<bool> buffersReported{false};                   // what the system granted for the socket
  CFillRegister fills;

  // A stop inside the play callback overwrites the block under fill on the spot: what is written into it later stays.
  void Flush(size_t position) {
    flushCounts[position].fetch_add(1, std::memory_order_release);
    flushes.fetch_add(1, std::memory_order_release);
    if (SBlockFill* own = fills.Own(position)) {
      std::memset(own->data, kIdleByte, kBlockBytes);
      own->queued.fill(kIdleByte);
      own->isKept = true;
      own->uniform = kNotUniform;
      ++own->flushCount;
    }
  }
};

}  // namespace zelk
