// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "card/pri_adapter.h"
#include "runtime/stop_flag.h"
#include "stream/media_hook.h"

namespace zelk {

class CCard;

// Internal call events, translated from libpri's.
enum ECallEvent : uint32_t {
  CALLEV_RESTART = 769,
  CALLEV_RING = 770,
  CALLEV_HANGUP = 771,
  CALLEV_HANGUP_REQ = 772,
  CALLEV_CONNECT_ACK = 773,
  CALLEV_HANGUP_ACK = 774,
  CALLEV_INFO = 775,
  CALLEV_UNKNOWN = 776,
  CALLEV_RINGING = 777,
  CALLEV_PROCEEDING = 778,
  CALLEV_ANSWER = 779,
  CALLEV_PROGRESS = 780,
};

// What a card calls up through. One object a card, which knows where the card's trunks and channels begin. Set after
// the first successful open, kept over re-opens, never cleared while threads run. caller: set when the calling thread
// has been given up. It is looked at after every callback of the application, which may take any time: a caller that
// was given up meanwhile touches no channel and reports nothing more.
class ICardHandlers : public IMediaHook {
 public:
  // Thread: the opener for up, control for down; no lock held.
  virtual void OnCardUp() = 0;
  virtual void OnCardDown(const CStopFlag& caller) = 0;
  // A line of the audio stream for the log. Thread: receive.
  virtual void OnNotice(const char* text) = 0;
  // A card that is about to be opened again: its calls have lost their controllers, or are about to.
  // Thread: the announcement listener, no lock held.
  virtual void OnCardReopening(const CStopFlag& caller) = 0;

  // Of libpri, for a trunk: status 257, 258 and 263. Thread: control, the trunk's lock held.
  virtual void OnDchannelUp(uint32_t trunk, const CStopFlag& caller) = 0;
  virtual void OnDchannelDown(uint32_t trunk, const CStopFlag& caller) = 0;
  virtual void OnConfigError(uint32_t trunk) = 0;
  // channel: the low 16 bits of the event's channel field, 0xFFFF when the network named none.
  virtual void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) = 0;

  // Of the card, for a trunk: status 260, 261, 262, 264 and 265. Thread: control, no lock held.
  virtual void OnLineStatus(uint32_t trunk, uint8_t status) = 0;
  virtual void OnQueueOverflow(uint32_t trunk, uint32_t queue) = 0;  // 0 incoming, 1 outgoing
  virtual void OnHdlcError(uint32_t trunk, uint8_t error) = 0;
  // Too many HDLC errors: the trunk is to be configured anew.
  virtual void OnLinkReset(CCard& card, uint32_t trunk, uint8_t error) = 0;
  // The answer to a register read. The trunk is as the card says, any byte.
  virtual void OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) = 0;

  // What the passing of time brings for the calls; nowMs is a millisecond counter. Thread: control, no lock held.
  // AwaitsTime: whether the next call of OnTime is waited for at all.
  virtual bool AwaitsTime() const { return false; }
  virtual void OnTime(CCard&, uint32_t /*nowMs*/, const CStopFlag& /*caller*/) {}
  // The trunk number that libpri's message lines show as the card: the number of trunks of all earlier cards.
  virtual uint32_t FirstGlobalTrunk() const = 0;
};

}  // namespace zelk
