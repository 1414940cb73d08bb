// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "call/channel_table.h"

namespace zelk {

// The one map between timeslots, B-channels, slots and channels, for the channels of one card:
//   B-channel     libpri's number of a timeslot: the timeslot's own, 1..15 and 17..31
//   voice index   of a B-channel among its trunk's 30 (runtime/e1.h)
//   slot          the place in the channel table: first channel + trunk x 30 + voice index
//   channel       what stands in a slot; its number is the slot's
// Numbers that come from the network may point anywhere: whatever is not this card's channel is reported as none.
// Thread: Place the initialising thread, before the card is given its handlers; everything else any.
class CCardChannels {
 public:
  // Slots that follow each other.
  struct SSlots {
    size_t first;
    size_t end;
  };

  CCardChannels(const CChannelTable& table, uint32_t cardIndex);

  // firstTrunk: the number of trunks of all earlier cards; firstChannel: the first slot of this card.
  void Place(uint32_t firstTrunk, uint32_t firstChannel);

  uint32_t CardIndex() const { return cardIndex; }
  uint32_t FirstTrunk() const { return firstTrunk.load(std::memory_order_relaxed); }

  // The B-channel that a call without one is given: formed from the slot in the whole table, not from the voice index
  // on the trunk, so right only for the first trunk of the first card. The networks in use answer to this number.
  static constexpr uint16_t BchannelOfWholeTable(size_t slot) { return static_cast<uint16_t>(BchannelOf(slot)); }

  // Numbers beyond 31 reach into the trunks that follow, as the call logic wants it.
  size_t SlotOf(uint32_t trunk, uint32_t bchannel) const;
  SSlots SlotsOfTrunk(uint32_t trunk) const;
  SSlots SlotsOfCard() const;
  // The channel in a slot when it is this card's, else null.
  CDevice* At(size_t slot) const { return table.At(slot, cardIndex); }
  // Of a slot that At gives a channel for.
  CWave& Wave(size_t slot) const { return table.Wave(slot); }
  bool IsBusy(size_t slot) const { return table.IsBusy(slot); }
  // Asks for the memory that a fill looks at: the channel's record, and what the record of the one half way there
  // says of its audio.
  void Foresee(size_t slot) const;

 private:
  const CChannelTable& table;
  const uint32_t cardIndex;
  std::atomic<uint32_t> firstTrunk{0};
  std::atomic<uint32_t> firstChannel{0};
};

}  // namespace zelk
