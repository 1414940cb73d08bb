// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <random>

#include "cardsim/base/bytes.h"

namespace cardsim {

// What a bad network does to a card's audio packets. Shares are in percent of the packets.
struct SAudioFaults {
  double loss = 0;
  double duplicates = 0;
  double reordered = 0;                 // such a packet goes after the one that follows it
  std::chrono::milliseconds delay{0};   // of every packet
  std::chrono::milliseconds jitter{0};  // up to this much more, packet by packet: one may overtake another
  std::uint32_t seed = 1;               // the same seed picks the same packets
};

struct SAudioPacket {
  Bytes bytes;
  std::uint32_t sequence = 0;
  std::uint8_t hint = 0;
  std::uint64_t frame = 0;  // number of its first frame since the stream began
};

struct SAudioFaultCounts {
  std::uint64_t lost = 0;
  std::uint64_t duplicated = 0;
  std::uint64_t reordered = 0;
};

// Job: the network between a card and the library: takes packets as they are sent and hands them out as they arrive.
// A pause holds all of them back and lets them go at once at its end. Thread: under the owner's lock. Nothing blocks.
class CAudioFaults {
 public:
  using Time = std::chrono::steady_clock::time_point;

  void Set(const SAudioFaults& faults);
  void PauseUntil(Time end) { pauseEnd = end; }
  // Nothing is done to packets and none is under way: the owner may send without asking.
  bool IsIdle(Time now) const;

  void Push(SAudioPacket packet, Time now);
  std::optional<SAudioPacket> Pop(Time now);
  std::optional<Time> NextDue() const;
  void Clear();  // forgets what is under way
  const SAudioFaultCounts& Counts() const { return counts; }

 private:
  bool Happens(double percent);
  void Launch(SAudioPacket packet, Time now);

  SAudioFaults settings;
  bool active = false;
  Time pauseEnd{};
  std::mt19937 random;
  std::optional<SAudioPacket> aside;  // goes after the next
  std::multimap<Time, SAudioPacket> underWay;
  SAudioFaultCounts counts;
};

}  // namespace cardsim
