// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/scan_float.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

namespace zelk {
namespace {

constexpr float kUntouched = -77.0F;

float Scanned(std::string_view text) {
  float value = kUntouched;
  EXPECT_TRUE(ScanFloat(text, value)) << text;
  return value;
}

TEST(ScanFloat, ReadsTheNumberAtTheBeginning) {
  EXPECT_FLOAT_EQ(Scanned("6.3"), 6.3F);
  EXPECT_FLOAT_EQ(Scanned("-6.3"), -6.3F);
  EXPECT_FLOAT_EQ(Scanned("+6.3"), 6.3F);
  EXPECT_FLOAT_EQ(Scanned(" \t7"), 7.0F);
  EXPECT_FLOAT_EQ(Scanned("1e2"), 100.0F);
  EXPECT_FLOAT_EQ(Scanned(".5"), 0.5F);
  EXPECT_FLOAT_EQ(Scanned("5."), 5.0F);
  EXPECT_FLOAT_EQ(Scanned("0x10"), 16.0F);
}

TEST(ScanFloat, IgnoresTextBehindTheNumber) {
  EXPECT_FLOAT_EQ(Scanned("5.5abc"), 5.5F);
  EXPECT_FLOAT_EQ(Scanned("5.5 ; note"), 5.5F);
  EXPECT_FLOAT_EQ(Scanned("5,5"), 5.0F);
  EXPECT_FLOAT_EQ(Scanned("5.5.5"), 5.5F);
}

TEST(ScanFloat, LeavesTheValueWhenTheTextDoesNotBeginWithANumber) {
  for (const char* text : {"", " ", "abc", "-", "+", "--5", "+-5", ".", "e5", "-.", ";5"}) {
    float value = kUntouched;
    EXPECT_FALSE(ScanFloat(text, value)) << text;
    EXPECT_EQ(value, kUntouched) << text;
  }
}

TEST(ScanFloat, BeyondTheRangeIsInfiniteAndBelowItIsZero) {
  EXPECT_TRUE(std::isinf(Scanned("1e39")));
  EXPECT_TRUE(std::isinf(Scanned("1e9999")));
  EXPECT_EQ(Scanned("-1e9999"), -INFINITY);
  EXPECT_EQ(Scanned("1e-60"), 0.0F);
  EXPECT_EQ(Scanned("1e-9999"), 0.0F);
  EXPECT_TRUE(std::isinf(Scanned("inf")));
  EXPECT_TRUE(std::isnan(Scanned("nan")));
}

// The C library is the oracle: the same result and the same value for texts of a small alphabet, as long as they do not
// end in an unfinished exponent, which libraries read differently.
TEST(ScanFloat, AgreesWithScanf) {
  constexpr std::string_view kAlphabet = "0123456789.+- x";
  std::mt19937 random(63);
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    for (size_t i = random() % 12; i > 0; --i) {
      text += kAlphabet[random() % kAlphabet.size()];
    }
    float expected = kUntouched;
    const bool isNumber = std::sscanf(text.c_str(), "%f", &expected) == 1;
    if (!isNumber && text.find("0x") != std::string::npos) {
      continue;  // an unfinished hexadecimal number
    }
    float value = kUntouched;
    ASSERT_EQ(ScanFloat(text, value), isNumber) << "[" << text << "]";
    ASSERT_EQ(value, expected) << "[" << text << "]";
  }
}

TEST(ScanFloat, DoesNotLookAtTheLocale) {
  const std::string before = std::setlocale(LC_NUMERIC, nullptr);
  const bool hasComma = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
  const float value = Scanned("6.3");
  std::setlocale(LC_NUMERIC, before.c_str());
  if (!hasComma) {
    GTEST_SKIP() << "no locale with a decimal comma is installed here";
  }
  EXPECT_FLOAT_EQ(value, 6.3F);
}

}  // namespace
}  // namespace zelk
