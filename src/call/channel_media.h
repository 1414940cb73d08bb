#pragma once

#include <cstdint>

#include "call/card_channels.h"
#include "stream/media_hook.h"

namespace zelk {

// The road of one card's audio between its timeslots and their channels: play queue, record tap, digits, end of play,
// and the application's play and record callbacks behind them. Thread: pacer; the mark of a block that went out comes
// on the receive thread. No lock is held while the application's callbacks run, and the channel is not touched after
// them. Timeslots without a channel get zero bytes.
class CChannelMedia {
 public:
  explicit CChannelMedia(const CCardChannels& channels);

  void Handle(uint16_t trunk, uint16_t timeslot, EMediaCode code, void* data, uint32_t length) const;
  // MEDIA_PLAY, with what a stop meanwhile must know.
  void Fill(uint16_t trunk, uint16_t timeslot, SBlockFill& fill) const;

 private:
  // False when no channel can stand there.
  bool FindSlot(uint16_t trunk, uint16_t timeslot, size_t& slot) const;

  const CCardChannels& channels;
};

}  // namespace zelk
