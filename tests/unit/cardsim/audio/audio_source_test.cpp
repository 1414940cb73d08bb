// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <stdexcept>

#include "common/g711.h"
#include "common/wire.h"

namespace cardsim {
namespace {

// Level of one frequency in a block, by a single Fourier term.
double LevelAt(const Bytes& samples, std::size_t from, std::size_t count, double frequency) {
  double real = 0;
  double imaginary = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / kSampleRate;
    real += DecodeALaw(samples[from + i]) * std::cos(phase);
    imaginary += DecodeALaw(samples[from + i]) * std::sin(phase);
  }
  const double amplitude = 2 * std::hypot(real, imaginary) / static_cast<double>(count);
  return 3.14 + 20 * std::log10(amplitude / 32768);
}

TEST(AudioSource, ToneHasItsLevel) {
  for (const double level : {0.0, -10.0, -30.0}) {
    const Bytes tone = RenderTone({1000}, level, 1000);
    ASSERT_EQ(tone.size(), 8000U);
    EXPECT_NEAR(Dbm0OfALaw(tone.data(), tone.size()), level, 0.2);
  }
}

TEST(AudioSource, DtmfDigitIsItsTwoFrequenciesAtTheLevelThenSilence) {
  const Bytes digits = RenderDtmf("5#", 100, 60, -8);
  ASSERT_EQ(digits.size(), 2U * 160 * 8);
  EXPECT_NEAR(LevelAt(digits, 0, 800, 770), -8, 0.3);
  EXPECT_NEAR(LevelAt(digits, 0, 800, 1336), -8, 0.3);
  EXPECT_LT(LevelAt(digits, 0, 800, 941), -35);
  EXPECT_EQ(Bytes(digits.begin() + 800, digits.begin() + 1280), Bytes(480, kSilence));
  EXPECT_NEAR(LevelAt(digits, 1280, 800, 941), -8, 0.3);
  EXPECT_NEAR(LevelAt(digits, 1280, 800, 1477), -8, 0.3);
}

TEST(AudioSource, OtherCharactersAreNoDigits) {
  EXPECT_THROW(RenderDtmf("1x", 80, 80, -7), std::invalid_argument);
}

TEST(AudioSource, BytesComeOnceInOrderWhateverThePieces) {
  const Bytes sound = RenderTestPattern(1000, 7);
  for (const std::size_t piece : {1U, 5U, 45U, 999U, 1000U, 4000U}) {
    const AudioSource source = MakeBytesSource(sound);
    Bytes got;
    for (;;) {
      Bytes part(piece);
      const std::size_t count = source->Read(part);
      got.insert(got.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(count));
      if (count < piece) {
        break;
      }
    }
    EXPECT_EQ(got, sound) << piece;
    Bytes more(1);
    EXPECT_EQ(source->Read(more), 0U);
  }
}

TEST(AudioSource, LoopBeginsAgainWithoutAGap) {
  const AudioSource source = MakeBytesSource(Bytes{1, 2, 3}, true);
  Bytes got(8);
  EXPECT_EQ(source->Read(got), 8U);
  EXPECT_EQ(got, (Bytes{1, 2, 3, 1, 2, 3, 1, 2}));
}

TEST(AudioSource, LoopOfNothingEnds) {
  Bytes got(8);
  EXPECT_EQ(MakeBytesSource(Bytes{}, true)->Read(got), 0U);
}

TEST(AudioSource, TestPatternUsesEveryCodeAndDependsOnTheSeed) {
  const Bytes pattern = RenderTestPattern(8000, 1);
  EXPECT_EQ(std::set<std::uint8_t>(pattern.begin(), pattern.end()).size(), 256U);
  EXPECT_NE(pattern, RenderTestPattern(8000, 2));
  EXPECT_EQ(pattern, RenderTestPattern(8000, 1));
}

TEST(AudioSource, AChainPlaysItsPartsWithoutAGap) {
  const AudioSource chain = MakeChain({MakeBytesSource(Bytes{1, 2, 3}), MakeBytesSource(Bytes{}),
                                       MakeBytesSource(Bytes{4, 5}), MakeBytesSource(Bytes{6}, true)});
  Bytes out(8);
  EXPECT_EQ(chain->Read(std::span(out).first(2)), 2U);
  EXPECT_EQ(chain->Read(std::span(out).subspan(2)), 6U);
  EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 5, 6, 6, 6}));
  EXPECT_EQ(MakeChain({MakeBytesSource(Bytes{1})})->Read(out), 1U);
}

}  // namespace
}  // namespace cardsim
