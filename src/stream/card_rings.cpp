// SPDX-License-Identifier: GPL-2.0-only
#include "stream/card_rings.h"

namespace zelk {

bool CCardRings::Create(uint32_t trunkCount, uint32_t blocks) {
  positions = size_t{trunkCount} * kTimeslotsPerTrunk;
  return transmit.Create(positions, blocks) && receive.Create(positions, blocks);
}

void CCardRings::ResetDetectors(const SDtmfSettings& settings) {
  for (CDtmfDecode& detector : detectors) {
    detector.SetThresholds(settings);
    detector.Reset();
  }
  detecting.fill(true);
}

}  // namespace zelk
