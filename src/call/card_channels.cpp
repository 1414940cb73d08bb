// SPDX-License-Identifier: GPL-2.0-only
#include "call/card_channels.h"

#include "runtime/prefetch.h"

namespace zelk {
namespace {

constexpr size_t kHalfWay = 8;

}  // namespace

CCardChannels::CCardChannels(const CChannelTable& channelTable, uint32_t index)
    : table(channelTable), cardIndex(index) {}

void CCardChannels::Place(uint32_t trunk, uint32_t channel) {
  firstTrunk = trunk;
  firstChannel = channel;
}

size_t CCardChannels::SlotOf(uint32_t trunk, uint32_t bchannel) const {
  return SlotsOfTrunk(trunk).first + VoiceIndexOf(bchannel);
}

CCardChannels::SSlots CCardChannels::SlotsOfTrunk(uint32_t trunk) const {
  const size_t first = size_t{firstChannel.load(std::memory_order_relaxed)} + size_t{trunk} * kChannelsPerTrunk;
  return {first, first + kChannelsPerTrunk};
}

CCardChannels::SSlots CCardChannels::SlotsOfCard() const {
  return {SlotsOfTrunk(0).first, SlotsOfTrunk(kMaxTrunks).first};
}

void CCardChannels::Foresee(size_t slot) const {
  if (table.At(slot) != nullptr && table.IsBusy(slot))
    table.Wave(slot).ForeseeState();
  // Whoever's it is: nothing of it is told.
  if (slot >= kHalfWay && table.At(slot - kHalfWay) != nullptr && table.IsBusy(slot - kHalfWay))
    table.Wave(slot - kHalfWay).ForeseeAudio();
}

}  // namespace zelk
