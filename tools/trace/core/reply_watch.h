// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>

#include "trace/core/capture_file.h"

namespace trace {

struct SReplyCounts {
  std::uint64_t packets = 0;   // from the card
  std::uint64_t lost = 0;      // numbers of the card that never came
  std::uint64_t repeated = 0;  // came twice, or too late
  std::uint64_t replies = 0;
  std::uint64_t late = 0;     // after more than kLate
  std::uint64_t missing = 0;  // owed and not in the capture
  std::uint64_t surplus = 0;  // owed by no packet
};

// Job: pairs a card's audio packets with the library's replies and tells how long these took. Which replies are owed:
// one for a packet in its turn, none for an old one, (hint - 4) where the numbering begins or jumps; one packet that is
// early by one waits for the next. Replies come in order, and the library's own numbers show those that are missing.
// Thread: one. Nothing fails.
class CReplyWatch {
 public:
  static constexpr Time kLate = 200 * kMillisecond;

  // A connection begins; `isWhole`: the capture has its begin, so the card's first packet is its first one.
  void Restart(bool isWhole);
  void OnPacket(std::uint32_t sequence, std::uint8_t hint, Time time);
  void OnReply(std::uint32_t sequence, Time time);

  const SReplyCounts& Counts() const { return counts; }
  // What share of the replies (0 to 1) took no longer than, in milliseconds; nothing without replies.
  std::optional<double> DelayMs(double share) const;

 private:
  // Bins of 10 microseconds up to 10 ms, then of 1 ms up to a second; the last is all above.
  static constexpr std::size_t kFineBins = 1000;
  static constexpr std::size_t kBins = 2000;

  void StartAnew(std::uint32_t sequence, std::uint8_t hint, Time time);
  void Owe(std::uint32_t sequence, int replies, Time time);
  void Expire(Time now);

  std::optional<std::uint32_t> next;
  bool isFirst = true;
  int oldInARow = 0;
  std::optional<std::pair<std::uint32_t, Time>> early;
  std::deque<Time> owed;
  std::optional<std::uint32_t> lastReply;
  SReplyCounts counts;
  std::array<std::uint64_t, kBins> bins{};
};

}  // namespace trace
