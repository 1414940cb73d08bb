// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>

namespace zelk {

// Tells when a receive thread cannot keep up with its card: whenever it looked, for two seconds, a packet waited. After
// a stall a thread that can keep up is through with what waited long before that.
// Pure. Thread: receive. The time of the last line is the card's, so that a card opened again does not repeat it.
class CBacklogWatch {
 public:
  static constexpr uint32_t kBehindMs = 2000;
  static constexpr uint32_t kLineMs = 60000;  // a line a minute at most
  static constexpr uint64_t kNoLine = 0;

  // The socket was empty.
  void CaughtUp() { behind = false; }
  // A packet waited already when the thread came for it, at this time of the millisecond counter.
  bool IsLineDue(uint32_t now, std::atomic<uint64_t>& lastLine) {
    if (!behind) {
      behind = true;
      since = now;
    }
    behindMs = now - since;
    const uint64_t last = lastLine.load(std::memory_order_relaxed);
    if (behindMs < kBehindMs || (last != kNoLine && now - static_cast<uint32_t>(last) < kLineMs))
      return false;
    lastLine.store(kWritten | now, std::memory_order_relaxed);
    return true;
  }
  uint32_t BehindMs() const { return behindMs; }

 private:
  static constexpr uint64_t kWritten = uint64_t{1} << 32;  // beside the counter, so that a time of 0 counts too

  bool behind = false;
  uint32_t since = 0;
  uint32_t behindMs = 0;
};

}  // namespace zelk
