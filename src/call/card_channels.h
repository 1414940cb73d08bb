#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "call/channel_table.h"

namespace zelk {

// Which slots of the channel table belong to one card, and how its trunks and timeslots map to them:
//   slot = first channel + trunk x 30 + voice index of the timeslot.
// Numbers that come from the network may point anywhere: whatever is not this card's channel is reported as none.
// Thread: Place the initialising thread, before the card is given its handlers; everything else any.
class CCardChannels {
 public:
  CCardChannels(const CChannelTable& table, uint32_t cardIndex);

  // firstTrunk: the number of trunks of all earlier cards; firstChannel: the first slot of this card.
  void Place(uint32_t firstTrunk, uint32_t firstChannel);

  uint32_t CardIndex() const { return cardIndex; }
  uint32_t FirstTrunk() const { return firstTrunk.load(std::memory_order_relaxed); }
  uint32_t FirstChannel() const { return firstChannel.load(std::memory_order_relaxed); }

  // Of a B-channel; numbers beyond 31 reach into the trunks that follow, as the call logic wants it.
  size_t SlotOf(uint32_t trunk, uint32_t timeslot) const;
  // The channel in a slot when it is this card's, else null.
  CDevice* At(size_t slot) const;

 private:
  const CChannelTable& table;
  const uint32_t cardIndex;
  std::atomic<uint32_t> firstTrunk{0};
  std::atomic<uint32_t> firstChannel{0};
};

}  // namespace zelk
