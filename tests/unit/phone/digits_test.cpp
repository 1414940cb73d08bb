// SPDX-License-Identifier: GPL-2.0-only
#include "phone/digits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <stdexcept>

#include "common/g711.h"

namespace phone {
namespace {

using Sound = std::vector<uint8_t>;

// Level of one frequency of a stretch, by a single Fourier term.
double LevelAt(const Sound& sound, size_t from, size_t count, double frequency) {
  double real = 0;
  double imaginary = 0;
  for (size_t i = 0; i < count; ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / 8000;
    real += tool::DecodeALaw(sound[from + i]) * std::cos(phase);
    imaginary += tool::DecodeALaw(sound[from + i]) * std::sin(phase);
  }
  return 3.14 + 20 * std::log10(2 * std::hypot(real, imaginary) / static_cast<double>(count) / 32768);
}

TEST(Digits, EachIsItsTwoTonesFor80MsAnd80MsOfSilence) {
  constexpr char kKeys[] = "123A456B789C*0#D";
  constexpr double kRows[] = {697, 770, 852, 941};
  constexpr double kColumns[] = {1209, 1336, 1477, 1633};
  const Sound sound = RenderDigits(kKeys);
  ASSERT_EQ(sound.size(), 16U * 1280);
  for (size_t key = 0; key < 16; ++key) {
    for (const double frequency : {697, 770, 852, 941, 1209, 1336, 1477, 1633}) {
      const bool own = frequency == kRows[key / 4] || frequency == kColumns[key % 4];
      const double level = LevelAt(sound, key * 1280, 640, frequency);
      EXPECT_TRUE(own ? std::abs(level + 9) < 0.5 : level < -22) << kKeys[key] << " " << frequency << " " << level;
    }
    EXPECT_EQ(Sound(sound.begin() + static_cast<ptrdiff_t>(key * 1280 + 640),
                    sound.begin() + static_cast<ptrdiff_t>((key + 1) * 1280)),
              Sound(640, 0xD5));
  }
}

TEST(Digits, LettersMayBeSmallAndACommaIsASecond) {
  EXPECT_EQ(RenderDigits("abcd"), RenderDigits("ABCD"));
  EXPECT_EQ(RenderDigits(","), Sound(8000, 0xD5));
  EXPECT_EQ(RenderDigits("1,2").size(), 8000U + 2 * 1280);
  EXPECT_TRUE(RenderDigits("").empty());
}

TEST(Digits, OtherCharactersAreRefused) {
  for (const char* text : {"12e", " ", "1-2", "\xE4"}) {
    EXPECT_THROW(RenderDigits(text), std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace phone
