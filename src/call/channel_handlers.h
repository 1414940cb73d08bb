// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "call/call_events.h"
#include "call/card_channels.h"
#include "call/channel_media.h"
#include "call/late_releases.h"
#include "call/trunk_status.h"
#include "card/card_handlers.h"

namespace zelk {

// The handlers of one card: what the card reports goes to the part of the call layer that deals with it.
// Thread: see ICardHandlers; Place the initialising thread. Must outlive the card's open time.
class CChannelHandlers : public ICardHandlers {
 public:
  CChannelHandlers(const CChannelTable& table, uint32_t cardIndex);

  void Place(uint32_t firstTrunk, uint32_t firstChannel);

  void OnCardUp() override;
  void OnCardDown(const CStopFlag& caller) override;
  void OnNotice(const char* text) override;
  void OnCardReopening(const CStopFlag& caller) override;
  void OnDchannelUp(uint32_t trunk, const CStopFlag& caller) override;
  void OnDchannelDown(uint32_t trunk, const CStopFlag& caller) override;
  void OnConfigError(uint32_t trunk) override;
  void OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code, const SPriEvent& event) override;
  void OnLineStatus(uint32_t, uint8_t) override {}  // the trunk's record has it already
  void OnQueueOverflow(uint32_t trunk, uint32_t queue) override;
  void OnHdlcError(uint32_t trunk, uint8_t error) override;
  void OnLinkReset(CCard& card, uint32_t trunk, uint8_t error) override;
  void OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) override;
  bool AwaitsTime() const override;
  void OnTime(CCard& card, uint32_t nowMs, const CStopFlag& caller) override;
  void Foresee(uint32_t trunk, uint32_t timeslot) override;
  void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) override;
  bool EndsPlay(uint32_t trunk, uint32_t timeslot) override;
  void OnMarkSent(uint32_t trunk, uint32_t timeslot) override;
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) override;
  void OnDigit(uint32_t trunk, uint32_t timeslot, char digit) override;
  uint32_t FirstGlobalTrunk() const override;

 private:
  CCardChannels channels;
  CLateReleases lateReleases;
  CCallEvents callEvents;
  CTrunkStatus trunkStatus;
  CChannelMedia media;
};

}  // namespace zelk
