// SPDX-License-Identifier: GPL-2.0-only
#include "stream/card_rings.h"

namespace zelk {

bool CCardRings::Create(uint32_t trunkCount, uint32_t blocks) {
  positions = size_t{trunkCount} * kTimeslotsPerTrunk;
  for (size_t i = 0; i < positions; ++i) {
    if (!channels[i].transmit.Create(blocks, kBlockBytes) || !channels[i].receive.Create(blocks, kBlockBytes))
      return false;
  }
  return true;
}

void CCardRings::ResetDetectors(const SDtmfSettings& settings) {
  for (SChannelRings& channel : channels) {
    channel.dtmf.SetThresholds(settings);
    channel.dtmf.Reset();
    channel.detectDigits = true;
  }
}

}  // namespace zelk
