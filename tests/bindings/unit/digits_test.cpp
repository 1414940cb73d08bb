// SPDX-License-Identifier: GPL-2.0-only
#include "zelk/cpp/Digits.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using zelkapi::Digits;

constexpr std::array<double, 8> kFrequencies{697, 770, 852, 941, 1209, 1336, 1477, 1633};  // ITU-T Q.23

// The level of a frequency in a stretch of sound, in dBm0.
double Level(const std::vector<uint8_t>& alaw, size_t from, size_t length, double frequency) {
  double real = 0;
  double imaginary = 0;
  for (size_t i = 0; i < length; ++i) {
    const double angle = 2 * M_PI * frequency * static_cast<double>(i) / 8000;
    const double sample = zelkapi::alawToLinear(alaw[from + i]);
    real += sample * std::cos(angle);
    imaginary += sample * std::sin(angle);
  }
  const double amplitude = 2 * std::hypot(real, imaginary) / static_cast<double>(length);
  return 20 * std::log10(amplitude / 32256 + 1e-9) + 3.14;
}

TEST(Digits, HaveTheirTwoFrequencies) {
  const std::string digits = "123A456B789C*0#D";
  const std::vector<uint8_t> alaw = Digits::render(digits, 100, 60);
  ASSERT_EQ(alaw.size(), digits.size() * 1280);
  for (size_t digit = 0; digit < digits.size(); ++digit) {
    for (size_t i = 0; i < kFrequencies.size(); ++i) {
      const bool isOwn = i == digit / 4 || i == 4 + digit % 4;
      const double level = Level(alaw, digit * 1280, 800, kFrequencies[i]);
      if (isOwn) {
        EXPECT_NEAR(level, -9, 0.3) << digits[digit] << ' ' << kFrequencies[i];
      } else {
        EXPECT_LT(level, -25) << digits[digit] << ' ' << kFrequencies[i];
      }
    }
  }
}

TEST(Digits, HavePausesOfSilence) {
  const std::vector<uint8_t> alaw = Digits::render("55", 40, 50);
  ASSERT_EQ(alaw.size(), 2U * 720);
  EXPECT_EQ(std::vector<uint8_t>(alaw.begin() + 320, alaw.begin() + 720), std::vector<uint8_t>(400, zelkapi::kSilence));
  EXPECT_EQ(Digits::render("5", 40, 0).size(), 320U);
  EXPECT_TRUE(Digits::render("").empty());
}

TEST(Digits, OthersAreRefused) {
  for (const char* const digits : {"12x", "a", " ", "E", "+"}) {
    EXPECT_THROW(Digits::render(digits), zelkapi::BadArgument) << digits;
  }
  EXPECT_THROW(Digits::render("1", 0, 10), zelkapi::BadArgument);
  EXPECT_THROW(Digits::render("1", 10, -1), zelkapi::BadArgument);
}

}  // namespace
