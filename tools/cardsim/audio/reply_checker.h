// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "cardsim/audio/reply_model.h"
#include "cardsim/base/bytes.h"

namespace cardsim {

struct SAudioStatistics {
  std::uint64_t packetsSent = 0;
  std::uint64_t replies = 0;       // accepted: right magic
  std::uint64_t late = 0;          // answered after the limit
  std::uint64_t missing = 0;       // never answered, as far as known (see CReplyChecker)
  std::uint64_t wrongSize = 0;     // other size than the packet it answers
  std::uint64_t sequenceGaps = 0;  // the library's counter did not go up by one
  std::uint64_t badMagic = 0;
  std::uint64_t surplus = 0;  // answered no packet
  std::uint64_t cutOff = 0;   // the stream ended before their time was over
  std::uint64_t outstanding = 0;
  // What the packets that reached the library must have looked like to it.
  std::uint64_t losses = 0;
  std::uint64_t oldPackets = 0;
  std::uint64_t oldResets = 0;
  std::uint32_t firstReplySequence = 0;
  double meanRoundTripMs = 0;
  double worstRoundTripMs = 0;
};

// Job: pairs the library's replies with the packets they answer and counts what is wrong. How many replies a packet
// asks for is CReplyModel's.
// Pairing is by order: the library's counter shows a reply lost on the way; a packet that the library passed over shows
// when it has waited longer than kMissingAfter, or at Finish longer than the limit for lateness.
// Thread: audio, under the card's audio lock. Nothing blocks or fails.
class CReplyChecker {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::milliseconds kMissingAfter{3000};

  explicit CReplyChecker(std::chrono::milliseconds limit) : lateAfter(limit) {}

  // A new stream begins: its first packet is to come. The totals go on.
  void Restart(Time now);
  // A packet has left the card and will reach the library.
  void OnSent(const SArrival& packet, Time now);
  // Returns the number of the first frame of the packet that the reply answers, if it answers one.
  std::optional<std::uint64_t> OnReply(ByteView reply, Time now);
  // No more replies are waited for.
  void Finish(Time now);
  SAudioStatistics Statistics() const;
  std::size_t Outstanding() const { return waiting.size(); }

 private:
  struct SSent {
    std::size_t bytes;
    std::uint64_t frame;
    Time time;
  };

  void CheckSequence(std::uint32_t sequence);
  void ExpireOld(Time now);
  std::optional<std::uint64_t> Pair(std::size_t bytes, Time now);

  std::chrono::milliseconds lateAfter;
  std::deque<SSent> waiting;
  SAudioStatistics totals;
  double roundTripSumMs = 0;
  std::uint64_t paired = 0;
  CReplyModel model;
  std::vector<SArrival> answered;  // scratch of OnSent
  std::optional<std::uint32_t> lastSequence;
};

}  // namespace cardsim
