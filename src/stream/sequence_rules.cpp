// SPDX-License-Identifier: GPL-2.0-only
#include "stream/sequence_rules.h"

#include <cstdio>

namespace zelk {
namespace {

constexpr uint32_t kOldPacketsToReset = 10;
constexpr uint8_t kLeastBacklogToFill = 5;  // below it the card has enough to play
constexpr uint8_t kBacklogKept = 4;

using EAction = SSequenceDecision::EAction;
using ENotice = SSequenceDecision::ENotice;

}  // namespace

SSequenceDecision CSequenceRules::Judge(uint32_t sequence, uint8_t backlogHint) {
  const bool missingCame = held == EHeld::kWaiting && sequence == lastSequence + 1;
  held = missingCame ? EHeld::kDue : EHeld::kNone;
  return Decide(sequence, backlogHint);
}

SSequenceDecision CSequenceRules::TakeHeld(uint8_t backlogHint) {
  held = EHeld::kNone;
  return Decide(heldSequence, backlogHint);
}

// The tests stand in this order on purpose: where the counter wraps, a number can satisfy more than one of them.
SSequenceDecision CSequenceRules::Decide(uint32_t sequence, uint8_t backlogHint) {
  SSequenceDecision decision;
  decision.expected = lastSequence + 1;
  decision.received = sequence;
  if (sequence == decision.expected) {
    if (firstPacket)
      Resynchronise(decision, backlogHint);
    else
      decision.replies = 1;
    Process(decision);
  } else if (sequence == decision.expected + 1) {
    decision.action = EAction::kHold;
    heldSequence = sequence;
    held = EHeld::kWaiting;
  } else if (sequence > decision.expected + 1) {
    decision.notice = ENotice::kLoss;
    Resynchronise(decision, backlogHint);
    Process(decision);
  } else {
    return DecideOld(decision, backlogHint);
  }
  return decision;
}

SSequenceDecision CSequenceRules::DecideOld(SSequenceDecision decision, uint8_t backlogHint) {
  decision.notice = ENotice::kOld;
  if (++oldPackets < kOldPacketsToReset)
    return decision;
  decision.notice = ENotice::kOldReset;
  Resynchronise(decision, backlogHint);
  Process(decision);
  return decision;
}

void CSequenceRules::Resynchronise(SSequenceDecision& decision, uint8_t backlogHint) {
  decision.replies = backlogHint >= kLeastBacklogToFill ? uint32_t{backlogHint} - kBacklogKept : 0;
  firstPacket = false;
}

void CSequenceRules::Process(SSequenceDecision& decision) {
  decision.action = EAction::kProcess;
  lastSequence = decision.received;
  oldPackets = 0;
}

size_t NoticeLines(const SSequenceDecision& decision, char (&lines)[2][kMaxNoticeChars]) {
  switch (decision.notice) {
    case ENotice::kNone:
      return 0;
    case ENotice::kLoss:
      std::snprintf(lines[0], kMaxNoticeChars, "Packet loss?, so sequence reset, expected %u got %u, processed.",
                    decision.expected, decision.received);
      return 1;
    case ENotice::kOld:
    case ENotice::kOldReset:
      std::snprintf(lines[0], kMaxNoticeChars, "Old/Duplicate Packet -> %u, ignored.", decision.received);
      if (decision.notice == ENotice::kOld)
        return 1;
      std::snprintf(lines[1], kMaxNoticeChars, "Too many Old/Duplicate Packets, so sequence reset to %u, processed.",
                    decision.received);
      return 2;
  }
  return 0;
}

}  // namespace zelk
