// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/tcp_stream.h"

#include <algorithm>
#include <utility>

namespace trace {
namespace {

// More than any window of this connection.
constexpr std::int64_t kFarAway = 1 << 24;
constexpr std::size_t kMostHeldSegments = 4096;

}  // namespace

// Sequence numbers are 32 bits of a place that goes on: the nearest one is meant.
std::int64_t CTcpStream::PlaceOf(std::uint32_t number) const {
  const std::uint32_t expected = origin + static_cast<std::uint32_t>(next);
  return next + static_cast<std::int32_t>(number - expected);
}

void CTcpStream::OnSegment(const SPacket& segment) {
  if (segment.isSyn) {
    if (begun) {
      return;  // once more
    }
    begun = true;
    origin = segment.sequence + 1;
    next = 0;
    return;
  }
  if (segment.payload.empty() && segment.leftOut == 0) {
    return;
  }
  if (!begun) {
    begun = true;
    origin = segment.sequence;
    next = 0;
  }
  ++counts.segments;
  const std::int64_t place = PlaceOf(segment.sequence);
  if (place > next + kFarAway || place < next - kFarAway) {
    ++counts.strays;
    return;
  }
  SHeld piece{Bytes(segment.payload.begin(), segment.payload.end()), segment.time, segment.number, segment.leftOut};
  if (place <= next) {
    Take(place, piece, std::exchange(nextIsAfterGap, false));
    TakeHeld();
  } else {
    Hold(place, std::move(piece));
  }
  GiveUpWaiting(segment.time);
}

void CTcpStream::OnAcknowledged(std::uint32_t number, Time now) {
  if (begun) {
    const std::int64_t place = PlaceOf(number);
    acknowledged = std::max(acknowledged, place < next + kFarAway ? place : 0);
    GiveUpWaiting(now);
  }
}

bool CTcpStream::HasReceived(std::uint32_t number) const {
  // The end of a stream counts as a byte.
  const std::int64_t ahead = begun ? PlaceOf(number) - next : 0;
  return ahead <= 1 || ahead > kFarAway;
}

void CTcpStream::Finish() {
  while (!held.empty()) {
    PassGap();
  }
}

// `place` is not beyond what is expected.
void CTcpStream::Take(std::int64_t place, const SHeld& segment, bool isAfterGap) {
  const std::size_t known = static_cast<std::size_t>(next - place);
  if (known >= segment.bytes.size() + segment.leftOut) {
    ++counts.repeated;
    nextIsAfterGap = nextIsAfterGap || isAfterGap;
    return;
  }
  next = place + static_cast<std::int64_t>(segment.bytes.size() + segment.leftOut);
  if (known < segment.bytes.size()) {
    sink({ByteView(segment.bytes).subspan(known), segment.time, segment.packet, isAfterGap, known == 0});
    isAfterGap = false;
  }
  if (segment.leftOut > 0) {
    ++counts.gaps;
    counts.bytesMissing += std::min(segment.leftOut, segment.bytes.size() + segment.leftOut - known);
  }
  nextIsAfterGap = isAfterGap || segment.leftOut > 0;
}

void CTcpStream::Hold(std::int64_t place, SHeld segment) {
  ++counts.outOfOrder;
  if (held.empty()) {
    waitingSince = segment.time;
  }
  const auto [at, isNew] = held.try_emplace(place);
  if (!isNew && at->second.bytes.size() >= segment.bytes.size()) {
    ++counts.repeated;
    return;
  }
  heldBytes += segment.bytes.size();
  heldBytes -= at->second.bytes.size();
  at->second = std::move(segment);
}

void CTcpStream::TakeHeld() {
  while (!held.empty() && held.begin()->first <= next) {
    const auto node = held.extract(held.begin());
    heldBytes -= node.mapped().bytes.size();
    Take(node.key(), node.mapped(), std::exchange(nextIsAfterGap, false));
  }
}

void CTcpStream::PassGap() {
  ++counts.gaps;
  counts.bytesMissing += static_cast<std::uint64_t>(held.begin()->first - next);
  next = held.begin()->first;
  nextIsAfterGap = true;
  TakeHeld();
}

void CTcpStream::GiveUpWaiting(Time now) {
  waitingSince = std::min(waitingSince, now);  // the clock may be set back
  while (!held.empty()) {
    const Time waited = now - waitingSince;
    const bool isAcknowledged = acknowledged > next;
    if (heldBytes <= kMostHeld && held.size() <= kMostHeldSegments &&
        waited < (isAcknowledged ? kPatienceWhenAcknowledged : kPatience)) {
      return;
    }
    PassGap();
    waitingSince = now;
  }
}

}  // namespace trace
