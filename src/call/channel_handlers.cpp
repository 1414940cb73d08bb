// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_handlers.h"

namespace zelk {

CChannelHandlers::CChannelHandlers(const CChannelTable& table, uint32_t cardIndex)
    : channels(table, cardIndex),
      lateReleases(channels),
      callEvents(channels, lateReleases),
      trunkStatus(channels),
      media(channels) {}

void CChannelHandlers::Place(uint32_t firstTrunk, uint32_t firstChannel) {
  channels.Place(firstTrunk, firstChannel);
}

void CChannelHandlers::OnCardUp() {
  trunkStatus.OnCardUp();
}

void CChannelHandlers::OnCardDown(const CStopFlag& caller) {
  trunkStatus.OnCardDown(caller);
}

void CChannelHandlers::OnNotice(const char* text) {
  trunkStatus.OnNotice(text);
}

void CChannelHandlers::OnCardReopening(const CStopFlag& caller) {
  trunkStatus.OnCardReopening(caller);
}

void CChannelHandlers::OnDchannelUp(uint32_t trunk, const CStopFlag& caller) {
  trunkStatus.OnDchannelUp(trunk, caller);
}

void CChannelHandlers::OnDchannelDown(uint32_t trunk, const CStopFlag& caller) {
  trunkStatus.OnDchannelDown(trunk, caller);
}

void CChannelHandlers::OnConfigError(uint32_t trunk) {
  trunkStatus.OnConfigError(trunk);
}

void CChannelHandlers::OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code,
                                   const SPriEvent& event) {
  callEvents.Handle(card, trunk, channel, code, event);
}

void CChannelHandlers::OnQueueOverflow(uint32_t trunk, uint32_t queue) {
  trunkStatus.OnQueueOverflow(trunk, queue);
}

void CChannelHandlers::OnHdlcError(uint32_t trunk, uint8_t error) {
  trunkStatus.OnHdlcError(trunk, error);
}

void CChannelHandlers::OnLinkReset(CCard& card, uint32_t trunk, uint8_t) {
  trunkStatus.OnLinkReset(card, trunk);
}

void CChannelHandlers::OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) {
  trunkStatus.OnRegister(trunk, registerNumber, value);
}

bool CChannelHandlers::AwaitsTime() const {
  return lateReleases.IsAwaited();
}

void CChannelHandlers::OnTime(CCard& card, uint32_t nowMs, const CStopFlag& caller) {
  lateReleases.OnTime(card, nowMs, caller);
}

void CChannelHandlers::Foresee(uint32_t trunk, uint32_t timeslot) {
  media.Foresee(trunk, timeslot);
}

void CChannelHandlers::FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) {
  media.FillBlock(trunk, timeslot, fill);
}

bool CChannelHandlers::EndsPlay(uint32_t trunk, uint32_t timeslot) {
  return media.EndsPlay(trunk, timeslot);
}

void CChannelHandlers::OnMarkSent(uint32_t trunk, uint32_t timeslot) {
  media.OnMarkSent(trunk, timeslot);
}

bool CChannelHandlers::OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) {
  return media.OnBlockReceived(trunk, timeslot, block);
}

void CChannelHandlers::OnDigit(uint32_t trunk, uint32_t timeslot, char digit) {
  media.OnDigit(trunk, timeslot, digit);
}

uint32_t CChannelHandlers::FirstGlobalTrunk() const {
  return channels.FirstTrunk();
}

}  // namespace zelk
