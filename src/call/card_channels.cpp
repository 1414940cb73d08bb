#include "call/card_channels.h"

namespace zelk {

CCardChannels::CCardChannels(const CChannelTable& channelTable, uint32_t index)
    : table(channelTable), cardIndex(index) {}

void CCardChannels::Place(uint32_t trunk, uint32_t channel) {
  firstTrunk = trunk;
  firstChannel = channel;
}

size_t CCardChannels::SlotOf(uint32_t trunk, uint32_t timeslot) const {
  return size_t{FirstChannel()} + size_t{trunk} * kChannelsPerTrunk + VoiceIndexOf(timeslot);
}

CDevice* CCardChannels::At(size_t slot) const {
  CDevice* device = table.At(slot);
  return device != nullptr && device->cardIndex == static_cast<int32_t>(cardIndex) ? device : nullptr;
}

}  // namespace zelk
