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

void CChannelHandlers::OnCardState(CCard& card, ECardCode code, const char* text, uint32_t value,
                                   const CStopFlag& caller) {
  trunkStatus.OnCardState(card, code, text, value, caller);
}

void CChannelHandlers::OnTrunkStatus(CCard& card, uint32_t trunk, ETrunkStatus code, uint16_t value16, uint32_t value32,
                                     const CStopFlag& caller) {
  trunkStatus.OnStatus(card, trunk, code, value16, value32, caller);
}

void CChannelHandlers::OnCallEvent(CCard& card, uint16_t trunk, uint16_t channel, ECallEvent code,
                                   const SPriEvent& event) {
  callEvents.Handle(card, trunk, channel, code, event);
}

bool CChannelHandlers::AwaitsTime() const {
  return lateReleases.IsAwaited();
}

void CChannelHandlers::OnTime(CCard& card, uint32_t nowMs, const CStopFlag& caller) {
  lateReleases.OnTime(card, nowMs, caller);
}

void CChannelHandlers::OnCardReopening(CCard&, const CStopFlag& caller) {
  trunkStatus.OnCardReopening(caller);
}

void CChannelHandlers::OnMedia(uint16_t trunk, uint16_t timeslot, EMediaCode code, void* data, uint32_t length) {
  media.Handle(trunk, timeslot, code, data, length);
}

void CChannelHandlers::OnFill(uint16_t trunk, uint16_t timeslot, SBlockFill& fill) {
  media.Fill(trunk, timeslot, fill);
}

uint32_t CChannelHandlers::FirstGlobalTrunk() const {
  return channels.FirstTrunk();
}

}  // namespace zelk
