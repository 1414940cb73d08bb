// SPDX-License-Identifier: GPL-2.0-only
#include "formats/g711.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace zelk {
namespace {

// The Recommendation's decision and output values, worked out here from its description of the segments (tables 1a to
// 2b of G.711), in units of the 16-bit scale the library uses: A-law's 13-bit scale times 8, mu-law's 14-bit times 4.
double ALawOutputValue(int characterSignal) {  // 1..128, counted outwards from zero on one side
  const int segment = (characterSignal - 1) / 16;
  const int step = (characterSignal - 1) % 16;
  const double width = segment <= 1 ? 2.0 : 2.0 * std::pow(2.0, segment - 1);
  const double start = segment == 0 ? 0.0 : 32.0 * std::pow(2.0, segment - 1);
  return (start + (step + 0.5) * width) * 8.0;
}

double MuLawOutputValue(int characterSignal) {  // 0..127
  const int segment = characterSignal / 16;
  const int step = characterSignal % 16;
  return ((33.0 + 2.0 * step) * std::pow(2.0, segment) - 33.0) * 4.0;
}

// Character signals of A-law count up from the smallest value; sign bit 1 is positive; the even bits are inverted.
uint8_t ALawCode(bool positive, int characterSignal) {
  return static_cast<uint8_t>(((positive ? 0x80 : 0) + characterSignal - 1) ^ 0x55);
}

// Mu-law codes of both signs count down from all ones at the smallest value; sign bit 1 is positive.
uint8_t MuLawCode(bool positive, int characterSignal) {
  return static_cast<uint8_t>((positive ? 0xFF : 0x7F) - characterSignal);
}

TEST(G711, ALawExpansionHasTheOutputValuesOfTheRecommendation) {
  for (int n = 1; n <= 128; ++n) {
    EXPECT_EQ(ALawToLinear(ALawCode(true, n)), ALawOutputValue(n)) << n;
    EXPECT_EQ(ALawToLinear(ALawCode(false, n)), -ALawOutputValue(n)) << n;
  }
}

TEST(G711, MuLawExpansionHasTheOutputValuesOfTheRecommendation) {
  for (int n = 0; n <= 127; ++n) {
    EXPECT_EQ(MuLawToLinear(MuLawCode(true, n)), MuLawOutputValue(n)) << n;
    EXPECT_EQ(MuLawToLinear(MuLawCode(false, n)), -MuLawOutputValue(n)) << n;
  }
}

TEST(G711, KnownExpansions) {
  EXPECT_EQ(MuLawToLinear(0x00), -32124);
  EXPECT_EQ(MuLawToLinear(0x7F), 0);
  EXPECT_EQ(MuLawToLinear(0x80), 32124);
  EXPECT_EQ(MuLawToLinear(0xFF), 0);
  EXPECT_EQ(ALawToLinear(0x00), -5504);
  EXPECT_EQ(ALawToLinear(0x55), -8);
  EXPECT_EQ(ALawToLinear(0xD5), 8);
  EXPECT_EQ(ALawToLinear(0x80), 5504);
}

// Every 16-bit sample but the most negative goes to the interval of A-law that holds its magnitude; the intervals are
// half open towards larger magnitudes, and the topmost takes everything above.
TEST(G711, ALawCompressionPicksTheIntervalThatHoldsTheSample) {
  for (int sample = -32767; sample <= 32767; ++sample) {
    const bool positive = sample >= 0;
    const double magnitude = std::abs(sample);
    int n = 1;
    for (int candidate = 2; candidate <= 128; ++candidate) {
      const int segment = (candidate - 1) / 16;
      const int step = (candidate - 1) % 16;
      const double width = segment <= 1 ? 2.0 : 2.0 * std::pow(2.0, segment - 1);
      const double start = segment == 0 ? 0.0 : 32.0 * std::pow(2.0, segment - 1);
      if (magnitude >= (start + step * width) * 8.0)
        n = candidate;
      else
        break;
    }
    ASSERT_EQ(LinearToALaw(static_cast<int16_t>(sample)), ALawCode(positive, n)) << sample;
  }
}

TEST(G711, MuLawCompressionPicksTheIntervalThatHoldsTheSample) {
  for (int sample = -32767; sample <= 32767; ++sample) {
    const double magnitude = std::abs(sample);
    // Decision values: the lower bound of character signal n >= 1 is the biased value 33 * 2^segment + 2^(segment+1) *
    // (step - 1/2), less the bias; clipping above.
    int n = 0;
    for (int candidate = 1; candidate <= 127; ++candidate) {
      const int segment = candidate / 16;
      const int step = candidate % 16;
      const double lower = (std::pow(2.0, segment) * (32.0 + 2.0 * step) - 33.0) * 4.0;
      if (magnitude >= lower)
        n = candidate;
      else
        break;
    }
    ASSERT_EQ(LinearToMuLaw(static_cast<int16_t>(sample)), MuLawCode(sample >= 0, n)) << sample;
  }
}

TEST(G711, EveryCodeSurvivesExpansionAndCompression) {
  for (int code = 0; code < 256; ++code) {
    const auto byte = static_cast<uint8_t>(code);
    EXPECT_EQ(LinearToALaw(ALawToLinear(byte)), byte);
    // Mu-law has two zeros; the negative one comes back as the positive one.
    EXPECT_EQ(LinearToMuLaw(MuLawToLinear(byte)), byte == 0x7F ? 0xFF : byte);
  }
}

TEST(G711, KnownCompressions) {
  EXPECT_EQ(LinearToMuLaw(32767), 0x80);
  EXPECT_EQ(LinearToMuLaw(0), 0xFF);
  EXPECT_EQ(LinearToMuLaw(-1), 0x7F);
  EXPECT_EQ(LinearToMuLaw(8), 0xFE);
  EXPECT_EQ(LinearToALaw(32767), 0xAA);
  EXPECT_EQ(LinearToALaw(0), 0xD5);
  EXPECT_EQ(LinearToALaw(-1), 0x55);
}

TEST(G711, TheMostNegativeSampleIsNotClippedAndDecodesNearZero) {
  EXPECT_EQ(LinearToMuLaw(-32768), 0x7F);
  EXPECT_EQ(MuLawToLinear(LinearToMuLaw(-32768)), 0);
  EXPECT_EQ(LinearToALaw(-32768), 0x55);
  EXPECT_EQ(ALawToLinear(LinearToALaw(-32768)), -8);
}

}  // namespace
}  // namespace zelk
