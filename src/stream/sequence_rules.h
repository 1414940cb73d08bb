// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelk {

// What to do with one received packet.
struct SSequenceDecision {
  enum class EAction { kDrop, kHold, kProcess };
  enum class ENotice { kNone, kLoss, kOld, kOldReset };

  EAction action = EAction::kDrop;
  uint32_t replies = 0;  // packets to send before processing
  ENotice notice = ENotice::kNone;
  uint32_t expected = 0;
  uint32_t received = 0;
};

// The order rules of a card's audio packets: in step, one packet early is held until the next decides, a loss or ten
// old packets in a row resynchronise. Pure: no packet, no clock, no socket.
//
//   first packet --1 or reset--> in step <--the missing one-- holding
//        \-------- E + 1 -------------------------------------->/      (anything else forgets the held packet)
//
// The caller keeps the held packet's bytes: on kHold it copies them, and while HeldDue() it judges them with TakeHeld()
// before it reads another packet.
// Thread: receive.
class CSequenceRules {
 public:
  // A packet from the network. Forgets a held packet unless this is the one that was missing.
  SSequenceDecision Judge(uint32_t sequence, uint8_t backlogHint);
  // True when the missing packet has come and the held one is next.
  bool HeldDue() const { return held == EHeld::kDue; }
  // The held packet itself; only while HeldDue().
  SSequenceDecision TakeHeld(uint8_t backlogHint);

 private:
  enum class EHeld { kNone, kWaiting, kDue };

  SSequenceDecision Decide(uint32_t sequence, uint8_t backlogHint);
  SSequenceDecision DecideOld(SSequenceDecision decision, uint8_t backlogHint);
  void Resynchronise(SSequenceDecision& decision, uint8_t backlogHint);
  void Process(SSequenceDecision& decision);

  uint32_t lastSequence = 0;
  uint32_t heldSequence = 0;
  uint32_t oldPackets = 0;
  bool firstPacket = true;
  EHeld held = EHeld::kNone;
};

// The notice's line(s) for the card's log, each terminated; NoticeLines gives their number. Ten old packets end in two.
constexpr size_t kMaxNoticeChars = 128;
size_t NoticeLines(const SSequenceDecision& decision, char (&lines)[2][kMaxNoticeChars]);

}  // namespace zelk
