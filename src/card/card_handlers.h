#pragma once

#include <cstdint>

#include "card/pri_adapter.h"
#include "platform/stop_flag.h"
#include "stream/media_hook.h"

namespace zelk {

class CCard;

// Codes of the card callback.
enum ECardCode : uint32_t {
  kCardNotice = 1,   // text: a line of the audio stream
  kCardWarning = 2,  // text: reserved, logged the same way
  kCardState = 3,    // value: 1 up, 0 down
};

// Codes of the trunk status callback.
enum ETrunkStatus : uint32_t {
  kDchannelUp = 257,
  kDchannelDown = 258,
  kStatusReserved = 259,
  kLineStatus = 260,     // value32: the new line status byte
  kQueueOverflow = 261,  // value32: 0 incoming, 1 outgoing
  kHdlcError = 262,      // value32: the error code
  kConfigError = 263,
  kLinkReset = 264,     // value32: the error code
  kRegisterRead = 265,  // value16: register number, value32: its value
};

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

// The four handlers that a card calls up through; one object a card, holding the contexts (card index, first global
// trunk, first channel). Set after the first successful open, kept over re-opens, never cleared while threads run.
// Thread: OnCardState control (also the opener, and receive with a notice); OnTrunkStatus control; OnCallEvent control,
// trunk lock held; OnCardReopening the announcement listener, no lock held; OnMedia see IMediaHook.
// caller: set when the calling thread has been given up. It is looked at behind every callback of the application,
// which may take any time: a caller that was given up meanwhile touches no channel and reports nothing more.
class ICardHandlers : public IMediaHook {
 public:
  virtual void OnCardState(CCard& card, ECardCode code, const char* text, uint32_t value, const CStopFlag& caller) = 0;
  virtual void OnTrunkStatus(CCard& card, uint32_t trunk, ETrunkStatus code, uint16_t value16, uint32_t value32,
                             const CStopFlag& caller) = 0;
  // channel: the low 16 bits of the event's channel field, 0xFFFF when the network named none.
  virtual void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) = 0;
  // What the passing of time brings for the calls; nowMs is a millisecond counter. Thread: control, no lock held.
  // AwaitsTime: whether the next call of OnTime is waited for at all.
  virtual bool AwaitsTime() const { return false; }
  virtual void OnTime(CCard&, uint32_t /*nowMs*/, const CStopFlag& /*caller*/) {}
  // A card that is about to be opened again: its calls have lost their controllers, or are about to.
  virtual void OnCardReopening(CCard& card, const CStopFlag& caller) = 0;
  // The trunk number that libpri's message lines show as the card: the number of trunks of all earlier cards.
  virtual uint32_t FirstGlobalTrunk() const = 0;
};

}  // namespace zelk
