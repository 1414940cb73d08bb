// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "common/bytes.h"

namespace trace {

// Job: puts audio packets of one direction, a timeslot of each, in the order of their sequence numbers. Packets that
// come twice count once; a jump too far for a loss begins a new numbering that goes on from there. Thread: one. Owns
// the samples. Nothing fails.
class CSoundTrack {
 public:
  static constexpr std::int64_t kFarthestLoss = 10'000;  // packets

  // A-law codes; the place in the track that they got, counted in packets.
  std::int64_t Add(std::uint32_t sequence, tool::Bytes&& codes);
  // The same for every later packet: one timeslot alone of what was kept, of frames of `frameBytes`.
  void Narrow(std::size_t frameBytes, std::size_t timeslot);

  bool IsEmpty() const { return packets.empty(); }
  std::int64_t First() const { return packets.begin()->first; }
  std::int64_t Last() const { return packets.rbegin()->first; }
  std::uint64_t Missing() const;  // packets between the first and the last
  std::uint64_t Repeated() const { return repeated; }
  // The packets from place `from` to place `to`, both included; one that is missing is `packetBytes` of silence.
  tool::Bytes Samples(std::int64_t from, std::int64_t to, std::size_t packetBytes) const;

 private:
  std::map<std::int64_t, tool::Bytes> packets;
  std::optional<std::uint32_t> lastSequence;
  std::int64_t lastPlace = 0;
  std::uint64_t repeated = 0;
};

}  // namespace trace
