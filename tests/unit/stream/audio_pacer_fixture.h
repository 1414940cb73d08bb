// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "audio_fakes.h"
#include "formats/g711.h"
#include "stream/audio_pacer.h"

namespace zelk {

// A pacer of one trunk with rings of two blocks, driven by hand.
class AudioPacer : public testing::Test {
 protected:
  AudioPacer() {
    EXPECT_TRUE(rings.Create(1, 2));
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = &hook;
  }

  // Puts a received block where the pacer finds it.
  void Receive(size_t position, const uint8_t* alaw) {
    const SPoolBlock block = rings.Receive().NextFree(position);
    ASSERT_TRUE(block);
    std::memcpy(block.data, alaw, kBlockBytes);
    rings.Receive().PushReady(position);
  }

  // The next 20 ms of the digit 5 (770 and 1336 Hz).
  static std::vector<uint8_t> TwoTones(int block) {
    std::vector<uint8_t> alaw(kBlockBytes);
    for (int i = 0; i < 160; ++i) {
      const double t = (block * 160 + i) / 8000.0 * 2.0 * std::numbers::pi;
      alaw[static_cast<size_t>(i)] =
          LinearToALaw(static_cast<int16_t>(5000 * std::sin(770 * t) + 5000 * std::sin(1336 * t)));
    }
    return alaw;
  }

  SAudioControls controls;
  CFakeHook hook;
  CCardRings rings;
  CAudioPacer pacer{controls, rings};
  CStopFlag stop;
};

}  // namespace zelk
