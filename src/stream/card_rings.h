// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

#include "dsp/dtmf_decode.h"
#include "stream/audio_controls.h"
#include "stream/block_pool.h"

namespace zelk {

// One channel position's two rings and its digit detector.
//
//   received: demultiplexer -> ready -> pacer -> free -> demultiplexer
//   sent:     pacer -> ready -> multiplexer -> free -> pacer
struct SChannelRings {
  CBlockPool transmit;
  CBlockPool receive;
  CDtmfDecode dtmf;
  bool detectDigits = true;
};

// All positions of a card; timeslots 0 and 16 circulate like the others.
// Thread: Create and ResetDetectors the opener, before the audio threads start; the positions as their rings say.
class CCardRings {
 public:
  // False when there is no memory.
  bool Create(uint32_t trunkCount, uint32_t blocks);
  void ResetDetectors(const SDtmfSettings& settings);

  size_t PositionCount() const { return positions; }
  SChannelRings& At(size_t position) { return channels[position]; }

 private:
  std::array<SChannelRings, kMaxPositions> channels;
  size_t positions = 0;
};

}  // namespace zelk
