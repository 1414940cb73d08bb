// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_line.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

constexpr SLocalTime kTime{2024, 3, 7, 14, 5, 9};

std::string Line(const char* text, int32_t channel) {
  std::string line = "old content";
  BuildLogLine(line, kTime, text, channel);
  return line;
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

}  // namespace
}  // namespace zelk
