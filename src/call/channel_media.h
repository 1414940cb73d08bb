// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "call/card_channels.h"
#include "stream/media_hook.h"

namespace zelk {

// The path of one card's audio between its timeslots and their channels: play queue, record tap, digits, end of play,
// and after them the application's play and record callbacks. The methods are those of IMediaHook.
// Thread: pacer; OnMarkSent receive. No lock is held while the application's callbacks run, and the channel is not
// touched after them. Timeslots without a channel get zero bytes.
class CChannelMedia {
 public:
  explicit CChannelMedia(const CCardChannels& channels);

  void Foresee(uint32_t trunk, uint32_t timeslot) const;
  void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) const;
  bool EndsPlay(uint32_t trunk, uint32_t timeslot) const;
  void OnMarkSent(uint32_t trunk, uint32_t timeslot) const;
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) const;
  void OnDigit(uint32_t trunk, uint32_t timeslot, char digit) const;

 private:
  // False when no channel can stand there.
  bool FindSlot(uint32_t trunk, uint32_t timeslot, size_t& slot) const;
  // Null also where a channel could stand.
  CDevice* Find(uint32_t trunk, uint32_t timeslot) const;

  const CCardChannels& channels;
};

}  // namespace zelk
