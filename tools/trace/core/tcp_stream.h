// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

#include "trace/core/packet.h"

namespace trace {

// Bytes of a stream in their order: what one segment brought that is new.
struct SPiece {
  ByteView bytes;
  Time time = 0;
  std::uint64_t packet = 0;
  bool isAfterGap = false;     // bytes before it are not in the capture
  bool isSegmentStart = true;  // its sender wrote a segment that begins here
};

struct STcpCounts {
  std::uint64_t segments = 0;
  std::uint64_t repeated = 0;    // segments with nothing new
  std::uint64_t outOfOrder = 0;  // segments that came before one of their predecessors
  std::uint64_t gaps = 0;
  std::uint64_t bytesMissing = 0;
  std::uint64_t strays = 0;  // segments far outside of what the connection can have under way
};

// Job: one direction of a TCP connection in order. What is missing is waited for until the other side has acknowledged
// it and it still does not come, or for kPatience; then it is a gap.
// Thread: one. Owns what it holds back, at most kMostHeld bytes. Nothing fails.
class CTcpStream {
 public:
  using Sink = std::function<void(const SPiece&)>;
  static constexpr std::size_t kMostHeld = 1 << 20;
  static constexpr Time kPatience = 3 * kSecond;
  static constexpr Time kPatienceWhenAcknowledged = kSecond / 5;

  explicit CTcpStream(Sink pieceSink) : sink(std::move(pieceSink)) {}

  // A segment of this direction. Without its SYN the stream begins with the first one that has bytes.
  void OnSegment(const SPacket& segment);
  // What the other side has acknowledged, and when.
  void OnAcknowledged(std::uint32_t number, Time now);
  // Whether all before `number` has come, so far as it can be told.
  bool HasReceived(std::uint32_t number) const;
  // No more segments: what is held back goes out, with its gaps.
  void Finish();
  const STcpCounts& Counts() const { return counts; }

 private:
  struct SHeld {
    Bytes bytes;
    Time time;
    std::uint64_t packet;
    std::size_t leftOut;
  };

  std::int64_t PlaceOf(std::uint32_t number) const;
  void Take(std::int64_t place, const SHeld& segment, bool isAfterGap);
  void Hold(std::int64_t place, SHeld segment);
  void TakeHeld();
  void PassGap();
  void GiveUpWaiting(Time now);

  Sink sink;
  STcpCounts counts;
  bool begun = false;
  std::uint32_t origin = 0;            // sequence number of place `originPlace`
  std::int64_t next = 0;               // place of the byte expected; places count from the begin
  std::int64_t acknowledged = 0;       // place
  bool nextIsAfterGap = false;         // a segment's end was left out
  std::map<std::int64_t, SHeld> held;  // by place
  std::size_t heldBytes = 0;
  Time waitingSince = 0;
};

}  // namespace trace
