// SPDX-License-Identifier: GPL-2.0-only
#include "common/g711.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace tool {
namespace {

// Values of table 1a/G.711 (13-bit scale, here times 8): code as sent, with the even bits inverted.
TEST(G711, DecodesTheValuesOfTheRecommendation) {
  EXPECT_EQ(DecodeALaw(0xD5), 1 * 8);      // smallest positive
  EXPECT_EQ(DecodeALaw(0x55), -1 * 8);     // smallest negative
  EXPECT_EQ(DecodeALaw(0xAA), 4032 * 8);   // largest positive
  EXPECT_EQ(DecodeALaw(0x2A), -4032 * 8);  // largest negative
  EXPECT_EQ(DecodeALaw(0x80 ^ 0x55 ^ 0x00), 8);
}

TEST(G711, EveryCodeSurvivesDecodingAndEncoding) {
  for (int code = 0; code < 256; ++code) {
    const auto byte = static_cast<std::uint8_t>(code);
    EXPECT_EQ(EncodeALaw(DecodeALaw(byte)), byte) << code;
  }
}

TEST(G711, EncodesToTheNearestLevel) {
  for (int linear = -32768; linear <= 32767; ++linear) {
    const int back = DecodeALaw(EncodeALaw(static_cast<std::int16_t>(linear)));
    int nearest = 1 << 20;
    const int magnitude = std::abs(linear);
    // Step of the segment the value is in: 16 up to 512, then doubling.
    int step = 16;
    for (int limit = 512; limit <= magnitude && step < 1024; limit *= 2) {
      step *= 2;
    }
    nearest = step / 2;
    ASSERT_LE(std::abs(back - linear), nearest) << linear;
  }
}

TEST(G711, FullScaleSineIs3Point14Dbm0) {
  EXPECT_NEAR(AmplitudeOfDbm0(3.14), 32768, 1);
}

}  // namespace
}  // namespace tool
