// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string_view>

#include "cardsim/base/bytes.h"

namespace cardsim {

// How DTMF digits are sent.
struct SDtmfSignal {
  static constexpr double kNoNoise = -1000;

  int onMs = 80;
  int offMs = 80;
  double level = -7;         // dBm0 of the row (low) tone
  double twist = 0;          // dB by which the column (high) tone is stronger
  double offsetPercent = 0;  // of both frequencies
  double noise = kNoNoise;   // dBm0 of white noise under tones and pauses
  std::uint32_t seed = 1;    // of the noise
};

// Digits 0-9 * # A-D; others throw std::invalid_argument. Each digit is its tone followed by its pause.
Bytes RenderDtmf(std::string_view digits, const SDtmfSignal& signal);
// White noise of this level; the same seed gives the same noise.
Bytes RenderNoise(double level, int ms, std::uint32_t seed);
// A voice's structure without its words: pulses of a wandering pitch through wandering formants, in syllables with
// pauses between. `level` is that of the whole, pauses included.
Bytes RenderSpeech(double level, int ms, std::uint32_t seed);
// Both at the same time; the shorter one is followed by silence.
Bytes Mix(ByteView first, ByteView second);
// The level in dBm0 by the mean power.
double LevelOf(ByteView samples);

}  // namespace cardsim
