// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_line.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "runtime/format.h"

namespace zelk {
namespace {

constexpr SLocalTime kTime{2024, 3, 7, 14, 5, 9};

std::string Line(const char* text, int32_t channel) {
  return std::string(CLogLine(kTime, text, channel).Characters());
}

TEST(LogLine, AChannelIsRightAlignedInThreeColumns) {
  EXPECT_EQ(Line("Dial() -> new call setup failed", 12),
            "07/03/2024 14:05:09  12 :Dial() -> new call setup failed\r\n");
  EXPECT_EQ(Line("x", 5), "07/03/2024 14:05:09   5 :x\r\n");
  EXPECT_EQ(Line("x", 0), "07/03/2024 14:05:09   0 :x\r\n");
  EXPECT_EQ(Line("x", 123), "07/03/2024 14:05:09 123 :x\r\n");
}

TEST(LogLine, AFourDigitChannelTakesItsRoom) {
  EXPECT_EQ(Line("x", 1023), "07/03/2024 14:05:09 1023 :x\r\n");
}

TEST(LogLine, AGeneralLineCarriesGBehindThreeBlanks) {
  EXPECT_EQ(Line("Card 0 is UP", kGeneralLine), "07/03/2024 14:05:09   G :Card 0 is UP\r\n");
}

TEST(LogLine, OnlyMinusOneIsGeneral) {
  EXPECT_EQ(Line("x", -2), "07/03/2024 14:05:09  -2 :x\r\n");
}

TEST(LogLine, TheTextIsNotAFormat) {
  EXPECT_EQ(Line("100%s %n", 1), "07/03/2024 14:05:09   1 :100%s %n\r\n");
}

TEST(LogLine, ANullTextIsAnEmptyOne) {
  EXPECT_EQ(Line(nullptr, 1), "07/03/2024 14:05:09   1 :\r\n");
}

TEST(LogLine, TheWholeLineHoldsAtMost43008CharactersAndIsCutWithItsEnd) {
  const std::string line = Line(std::string(50000, 'x').c_str(), 7);
  EXPECT_EQ(line, "07/03/2024 14:05:09   7 :" + std::string(43008 - 25, 'x'));
}

// The line as printf makes it.
std::string Printed(const SLocalTime& time, const char* text, int32_t channel) {
  const auto [year, month, day, hour, minute, second] = time;
  std::string line;
  if (channel == kGeneralLine) {
    FormatString(line, "%02u/%02u/%04u %02u:%02u:%02u   G :%s\r\n", day, month, year, hour, minute, second, text);
  } else {
    FormatString(line, "%02u/%02u/%04u %02u:%02u:%02u %3d :%s\r\n", day, month, year, hour, minute, second, channel,
                 text);
  }
  return line;
}

TEST(LogLine, EqualsThePrintedLineForAnyDateChannelAndText) {
  std::mt19937 random(1);
  // Each field's usual numbers, and now and then any that it can hold.
  const auto number = [&random](uint32_t usual) { return random() % (random() % 4 == 0 ? 0x10000U : usual); };
  for (int i = 0; i < 2'000; ++i) {
    const auto part = [&](uint32_t usual) { return static_cast<uint16_t>(number(usual)); };
    const SLocalTime time{part(3000), part(13), part(32), part(24), part(60), part(61)};
    const auto channel = static_cast<int32_t>(random() % 4 == 0 ? random() : number(1100) - 2);
    std::string text(number(80), ' ');
    for (char& character : text) {
      character = static_cast<char>(1 + random() % 255);
    }
    ASSERT_EQ(CLogLine(time, text.c_str(), channel).Characters(), Printed(time, text.c_str(), channel));
  }
}

TEST(LogLine, EqualsThePrintedLineAtEveryLengthAroundItsLimits) {
  for (const size_t limit : {size_t{1024}, kMaxFormattedChars}) {
    for (size_t length = limit - 60; length < limit + 20; ++length) {
      const std::string text(length, 'x');
      for (const int32_t channel : {kGeneralLine, 7, INT32_MIN, INT32_MAX}) {
        ASSERT_EQ(CLogLine(kTime, text.c_str(), channel).Characters(), Printed(kTime, text.c_str(), channel)) << length;
      }
    }
  }
}

}  // namespace
}  // namespace zelk
