#pragma once

#include <cstdint>

#include "call/call_events.h"
#include "call/card_channels.h"
#include "call/channel_media.h"
#include "call/late_releases.h"
#include "call/trunk_status.h"
#include "card/card_handlers.h"

namespace zelk {

// The four handlers of one card: what the card reports goes to the part of the call layer that deals with it.
// Thread: see ICardHandlers; Place the initialising thread. Must outlive the card's open time.
class CChannelHandlers : public ICardHandlers {
 public:
  CChannelHandlers(const CChannelTable& table, uint32_t cardIndex);

  void Place(uint32_t firstTrunk, uint32_t firstChannel);

  void OnCardState(CCard& card, ECardCode code, const char* text, uint32_t value, const CStopFlag& caller) override;
  void OnTrunkStatus(CCard& card, uint32_t trunk, ETrunkStatus code, uint16_t value16, uint32_t value32,
                     const CStopFlag& caller) override;
  void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) override;
  bool AwaitsTime() const override;
  void OnTime(CCard& card, uint32_t nowMs, const CStopFlag& caller) override;
  void OnCardReopening(CCard& card, const CStopFlag& caller) override;
  void OnMedia(uint16_t trunk, uint16_t timeslot, EMediaCode code, void* data, uint32_t length) override;
  void OnFill(uint16_t trunk, uint16_t timeslot, SBlockFill& fill) override;
  uint32_t FirstGlobalTrunk() const override;

 private:
  CCardChannels channels;
  CLateReleases lateReleases;
  CCallEvents callEvents;
  CTrunkStatus trunkStatus;
  CChannelMedia media;
};

}  // namespace zelk
