// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>

#include "phone/recorder.h"
#include "zelk/ZelkApi.h"

namespace phone {

// A recorder for every channel. Thread: as CRecorder.
class CRecorderBank : public IBlockSink {
 public:
  void Append(uint32_t channel, const uint8_t* data, uint32_t length) override {
    if (channel < ZELK_MAX_CHANNELS) {
      recorders[channel].Append(channel, data, length);
    }
  }
  CRecorder& Of(int32_t channel) { return recorders[static_cast<size_t>(channel)]; }

 private:
  const std::unique_ptr<CRecorder[]> recorders = std::make_unique<CRecorder[]>(ZELK_MAX_CHANNELS);
};

}  // namespace phone
