// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/reply_checker.h"

#include <algorithm>

#include "common/wire.h"

namespace cardsim {
namespace {

// A jump of the counter beyond this is a new numbering, not lost replies.
constexpr std::uint32_t kLargestLoss = 1000;

}  // namespace

void CReplyChecker::Restart(Time now) {
  Finish(now);
  model.Restart();
  lastSequence.reset();
}

void CReplyChecker::OnSent(const SArrival& packet, Time now) {
  ++totals.packetsSent;
  answered.clear();
  model.OnArrival(packet, answered);
  for (const SArrival& owed : answered) {
    waiting.push_back({owed.bytes, owed.frame, now});
  }
  ExpireOld(now);
}

std::optional<std::uint64_t> CReplyChecker::OnReply(ByteView reply, Time now) {
  if (reply.size() < kAudioHeaderBytes || reply[0] != 0xFF || reply[1] != 0x55) {
    ++totals.badMagic;
    return std::nullopt;
  }
  if (totals.replies == 0) {
    totals.firstReplySequence = ReadLe32(&reply[2]);
  }
  ++totals.replies;
  CheckSequence(ReadLe32(&reply[2]));
  return Pair(reply.size(), now);
}

void CReplyChecker::CheckSequence(std::uint32_t sequence) {
  if (lastSequence && sequence != *lastSequence + 1) {
    ++totals.sequenceGaps;
    const std::uint32_t lost = sequence - *lastSequence - 1;
    for (std::uint32_t i = 0; lost <= kLargestLoss && i < lost && !waiting.empty(); ++i) {
      waiting.pop_front();
      ++totals.missing;
    }
  }
  lastSequence = sequence;
}

std::optional<std::uint64_t> CReplyChecker::Pair(std::size_t bytes, Time now) {
  if (waiting.empty()) {
    ++totals.surplus;
    return std::nullopt;
  }
  const SSent sent = waiting.front();
  waiting.pop_front();
  if (sent.bytes != bytes) {
    ++totals.wrongSize;
    return std::nullopt;
  }
  const double ms = std::chrono::duration<double, std::milli>(now - sent.time).count();
  ++paired;
  roundTripSumMs += ms;
  totals.worstRoundTripMs = std::max(totals.worstRoundTripMs, ms);
  if (now - sent.time > lateAfter) {
    ++totals.late;
  }
  return sent.frame;
}

void CReplyChecker::ExpireOld(Time now) {
  while (!waiting.empty() && now - waiting.front().time > kMissingAfter) {
    waiting.pop_front();
    ++totals.missing;
  }
}

void CReplyChecker::Finish(Time now) {
  for (const SSent& sent : waiting) {
    ++(now - sent.time > lateAfter ? totals.missing : totals.cutOff);
  }
  waiting.clear();
}

SAudioStatistics CReplyChecker::Statistics() const {
  SAudioStatistics result = totals;
  result.outstanding = waiting.size();
  result.losses = model.Losses();
  result.oldPackets = model.OldPackets();
  result.oldResets = model.OldResets();
  result.meanRoundTripMs = paired == 0 ? 0 : roundTripSumMs / static_cast<double>(paired);
  return result;
}

}  // namespace cardsim
