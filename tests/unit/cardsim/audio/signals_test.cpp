// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "common/g711.h"
#include "common/wire.h"

namespace cardsim {
namespace {

// Level of one frequency in a block, by a single Fourier term.
double LevelAt(ByteView samples, double frequency) {
  double real = 0;
  double imaginary = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / kSampleRate;
    real += DecodeALaw(samples[i]) * std::cos(phase);
    imaginary += DecodeALaw(samples[i]) * std::sin(phase);
  }
  const double amplitude = 2 * std::hypot(real, imaginary) / static_cast<double>(samples.size());
  return 3.14 + 20 * std::log10(amplitude / 32768);
}

TEST(Signals, ADigitIsItsTwoTonesForItsTimeThenItsPause) {
  const Bytes digit = RenderDtmf("9", {.onMs = 100, .offMs = 50, .level = -12});
  ASSERT_EQ(digit.size(), 1200U);
  const ByteView tone = ByteView(digit).first(800);
  EXPECT_NEAR(LevelAt(tone, 852), -12, 0.3);
  EXPECT_NEAR(LevelAt(tone, 1477), -12, 0.3);
  EXPECT_EQ(Bytes(digit.begin() + 800, digit.end()), Bytes(400, kSilence));
}

TEST(Signals, TwistMakesTheColumnStrongerOrWeaker) {
  for (const double twist : {6.0, -6.0}) {
    const Bytes digit = RenderDtmf("1", {.onMs = 200, .offMs = 0, .level = -15, .twist = twist});
    EXPECT_NEAR(LevelAt(digit, 697), -15, 0.3);
    EXPECT_NEAR(LevelAt(digit, 1209), -15 + twist, 0.3);
  }
}

TEST(Signals, TheOffsetMovesBothFrequencies) {
  const Bytes digit = RenderDtmf("D", {.onMs = 500, .offMs = 0, .level = -10, .offsetPercent = -2});
  EXPECT_NEAR(LevelAt(digit, 941 * 0.98), -10, 0.3);
  EXPECT_NEAR(LevelAt(digit, 1633 * 0.98), -10, 0.3);
  EXPECT_LT(LevelAt(digit, 941), -25);
}

TEST(Signals, NoiseLiesUnderTonesAndPausesAtItsLevel) {
  const Bytes digits = RenderDtmf("5", {.onMs = 50, .offMs = 500, .level = -10, .noise = -30});
  EXPECT_NEAR(LevelOf(ByteView(digits).subspan(400)), -30, 0.5);
  const Bytes other = RenderDtmf("5", {.onMs = 50, .offMs = 500, .level = -10, .noise = -30, .seed = 2});
  EXPECT_NE(digits, other);
}

TEST(Signals, OtherCharactersAreNoDigits) {
  EXPECT_THROW(RenderDtmf("12x", SDtmfSignal{}), std::invalid_argument);
}

TEST(Signals, NoiseIsWhiteRepeatableAndHasItsLevel) {
  for (const double level : {-10.0, -30.0, -45.0}) {
    EXPECT_NEAR(LevelOf(RenderNoise(level, 2000, 5)), level, 0.3);
  }
  const Bytes noise = RenderNoise(-10, 4000, 5);
  EXPECT_EQ(noise, RenderNoise(-10, 4000, 5));
  EXPECT_NE(noise, RenderNoise(-10, 4000, 6));
  for (const double frequency : {300.0, 1000.0, 3000.0}) {
    EXPECT_LT(LevelAt(noise, frequency), -35) << frequency;
  }
}

TEST(Signals, SpeechHasItsLevelItsPausesAndIsRepeatable) {
  const Bytes speech = RenderSpeech(-20, 10000, 9);
  ASSERT_EQ(speech.size(), 80000U);
  EXPECT_NEAR(LevelOf(speech), -20, 0.5);
  EXPECT_EQ(speech, RenderSpeech(-20, 10000, 9));
  EXPECT_NE(speech, RenderSpeech(-20, 10000, 10));
  int silent = 0;
  int loud = 0;
  for (std::size_t at = 0; at < speech.size(); at += 160) {
    const double level = LevelOf(ByteView(speech).subspan(at, 160));
    silent += level < -50 ? 1 : 0;
    loud += level > -20 ? 1 : 0;
  }
  EXPECT_GT(silent, 50);
  EXPECT_GT(loud, 50);
}

TEST(Signals, AMixIsTheSumAndLastsAsLongAsTheLonger) {
  const Bytes first = RenderNoise(-20, 1000, 1);
  const Bytes second = RenderNoise(-20, 2000, 2);
  const Bytes both = Mix(first, second);
  ASSERT_EQ(both.size(), 16000U);
  EXPECT_NEAR(LevelOf(ByteView(both).first(8000)), -17, 0.3);
  EXPECT_NEAR(LevelOf(ByteView(both).subspan(8000)), -20, 0.3);
}

}  // namespace
}  // namespace cardsim
