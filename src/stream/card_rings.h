// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "dsp/dtmf_decode.h"
#include "runtime/config.h"
#include "stream/block_pool.h"
#include "stream/pacer_rest.h"

namespace zelk {

// The blocks of all positions of a card, both ways, and the positions' digit detectors. Timeslots 0 and 16 circulate
// like the others.
//
//   received: demultiplexer -> ready -> pacer -> free -> demultiplexer
//   sent:     pacer -> ready -> multiplexer -> free -> pacer
//
// Thread: Create and ResetDetectors the opener, before the audio threads start; detectors and their switches pacer; the
// pools as they say.
class CCardRings {
 public:
  // False when there is no memory.
  bool Create(uint32_t trunkCount, uint32_t blocks);
  // Every detector starts anew with these thresholds, and is on.
  void ResetDetectors(const SDtmfSettings& settings);

  size_t PositionCount() const { return positions; }
  CPacerRest& Rest() { return rest; }
  CBlockPool& Transmit() { return transmit; }
  CBlockPool& Receive() { return receive; }
  CDtmfDecode& Detector(size_t position) { return detectors[position]; }
  bool DetectsDigits(size_t position) const { return detecting[position]; }
  void SetDetectsDigits(size_t position, bool on) { detecting[position] = on; }

 private:
  size_t positions = 0;
  CPacerRest rest;
  CBlockPool transmit;
  CBlockPool receive;
  std::array<CDtmfDecode, kMaxPositions> detectors;
  std::array<bool, kMaxPositions> detecting{};
};

}  // namespace zelk
