// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini_text.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

namespace zelk {
namespace {

using namespace std::string_view_literals;

std::string_view Find(std::string_view text, std::string_view section, std::string_view key) {
  return FindProfileValue(text, section, key).value_or("<missing>");
}

TEST(IniText, FindsAKeyInItsSection) {
  constexpr auto kText = "[Debug]\r\nLevel=1\r\n[General]\r\nLevel=2\r\nCrc4=3\r\n"sv;
  EXPECT_EQ(Find(kText, "Debug", "Level"), "1");
  EXPECT_EQ(Find(kText, "General", "Level"), "2");
  EXPECT_EQ(Find(kText, "General", "Crc4"), "3");
}

TEST(IniText, AMissingSectionOrKeyIsMissing) {
  constexpr auto kText = "Level=9\n[Debug]\nLevel=1\n[General]\nCrc4=3\n"sv;
  EXPECT_EQ(Find(kText, "Dtmf", "Level"), "<missing>");
  EXPECT_EQ(Find(kText, "Debug", "Crc4"), "<missing>");
  EXPECT_EQ(Find("", "Debug", "Level"), "<missing>");
}

TEST(IniText, NamesAreComparedWithoutCase) {
  EXPECT_EQ(Find("[deBUG]\nLEvel=1\n", "Debug", "Level"), "1");
}

TEST(IniText, NamesMatchAsAWhole) {
  EXPECT_EQ(Find("[Debugger]\nLevel=1\n[Debu]\nLevel=2\n[Debug]\nLevels=3\nLeve=4\nLevel=5\n", "Debug", "Level"), "5");
}

TEST(IniText, BlanksAroundNamesAndValuesAreDropped) {
  EXPECT_EQ(Find(" \t[ Debug\t] \n\t Level \t=  a b \t\n", "Debug", "Level"), "a b");
}

TEST(IniText, LinesMayEndInLfOrCrLfOrWithTheText) {
  EXPECT_EQ(Find("[A]\nk=1", "A", "k"), "1");
  EXPECT_EQ(Find("[A]\r\nk=1\r\n", "A", "k"), "1");
  EXPECT_EQ(Find("[A]\r\n\r\n\n  \nk=1\r", "A", "k"), "1");
}

TEST(IniText, TheFirstKeyOfTheNameCounts) {
  EXPECT_EQ(Find("[A]\nk=1\nk=2\n", "A", "k"), "1");
}

TEST(IniText, OnlyTheFirstSectionOfTheNameIsSearched) {
  constexpr auto kText = "[A]\nk=1\n[B]\n[A]\nother=2\n"sv;
  EXPECT_EQ(Find(kText, "A", "k"), "1");
  EXPECT_EQ(Find(kText, "A", "other"), "<missing>");
}

TEST(IniText, LinesThatBeginWithASemicolonAreComments) {
  EXPECT_EQ(Find(";[A]\n[A]\n ; k=1\n;k=2\nk=3\n", "A", "k"), "3");
  EXPECT_EQ(Find("[A]\n;[B]\nk=3\n", "A", "k"), "3");
  EXPECT_EQ(Find("[A]\n;k=3\n", "A", ";k"), "<missing>");
}

TEST(IniText, ASemicolonInsideAValueBelongsToIt) {
  EXPECT_EQ(Find("[A]\nk=1 ; one\n", "A", "k"), "1 ; one");
}

TEST(IniText, OnePairOfEqualQuotesAroundAValueIsDropped) {
  EXPECT_EQ(Find("[A]\nk=\" a \"\n", "A", "k"), " a ");
  EXPECT_EQ(Find("[A]\nk='a'\n", "A", "k"), "a");
  EXPECT_EQ(Find("[A]\nk=\"\"a\"\"\n", "A", "k"), "\"a\"");
  EXPECT_EQ(Find("[A]\nk=\"a'\n", "A", "k"), "\"a'");
  EXPECT_EQ(Find("[A]\nk=\"\n", "A", "k"), "\"");
  EXPECT_EQ(Find("[A]\nk=\"\"\n", "A", "k"), "");
}

TEST(IniText, AnEmptyValueIsPresentAndALineWithoutEqualsIsNot) {
  EXPECT_EQ(Find("[A]\nk=\n", "A", "k"), "");
  EXPECT_EQ(Find("[A]\nk\nk=1\n", "A", "k"), "1");
}

TEST(IniText, AValueMayHoldFurtherEqualsSignsAndBrackets) {
  EXPECT_EQ(Find("[A]\nk=a=b]\n", "A", "k"), "a=b]");
}

TEST(IniText, AHeadingWithoutItsBracketIsNoHeading) {
  EXPECT_EQ(Find("[A\nk=1\n", "A", "k"), "<missing>");
  EXPECT_EQ(Find("[A]\n[B\nk=1\n", "A", "k"), "1");
}

TEST(IniText, TextBehindAHeadingIsIgnored) {
  EXPECT_EQ(Find("[A] k=0 ; note\nk=1\n", "A", "k"), "1");
}

TEST(IniText, AByteOrderMarkIsSkipped) {
  EXPECT_EQ(Find("\xEF\xBB\xBF[A]\nk=1\n", "A", "k"), "1");
  EXPECT_EQ(Find("\xEF\xBB\xBF", "A", "k"), "<missing>");
}

TEST(IniText, AZeroByteEndsAValue) {
  EXPECT_EQ(Find("[A]\nk=1 \0 2\nm=3\n"sv, "A", "k"), "1");
  EXPECT_EQ(Find("[A]\nk=1 \0 2\nm=3\n"sv, "A", "m"), "3");
}

TEST(IniText, AVeryLongLineIsReadLikeAnyOther) {
  const std::string value(1'000'000, 'x');
  EXPECT_EQ(Find("[A]\nk=" + value + "\nm=1\n", "A", "k"), value);
  EXPECT_EQ(Find("[A]\nk=" + value + "\nm=1\n", "A", "m"), "1");
}

TEST(ProfileNumber, ReadsADecimalNumberWithASign) {
  EXPECT_EQ(ProfileNumber("42"), 42);
  EXPECT_EQ(ProfileNumber("-42"), -42);
  EXPECT_EQ(ProfileNumber("+42"), 42);
  EXPECT_EQ(ProfileNumber(" 7"), 7);
  EXPECT_EQ(ProfileNumber("007"), 7);
}

TEST(ProfileNumber, IgnoresTextBehindTheNumber) {
  EXPECT_EQ(ProfileNumber("5 ; five"), 5);
  EXPECT_EQ(ProfileNumber("5abc"), 5);
  EXPECT_EQ(ProfileNumber("5.9"), 5);
}

TEST(ProfileNumber, IsZeroWithoutANumber) {
  for (const std::string_view text : {"abc", "", "-", "+", "--5", "- 5", "=5"}) {
    EXPECT_EQ(ProfileNumber(text), 0) << text;
  }
}

TEST(ProfileNumber, HonoursNoPrefix) {
  EXPECT_EQ(ProfileNumber("0x1F"), 0);
}

TEST(ProfileNumber, WrapsToThirtyTwoBits) {
  EXPECT_EQ(ProfileNumber("2147483647"), 2147483647);
  EXPECT_EQ(ProfileNumber("2147483648"), INT32_MIN);
  EXPECT_EQ(ProfileNumber("-2147483648"), INT32_MIN);
  EXPECT_EQ(ProfileNumber("4294967295"), -1);
  EXPECT_EQ(ProfileNumber("4294967298"), 2);
}

// A few pieces make headings, keys and quotes meet in every way; what is found must lie inside the text.
TEST(IniText, AnyBytesGiveAResultInsideTheText) {
  constexpr std::array kPieces{"\nk="sv, "[A]\n"sv, "[A]"sv, "[B]"sv, "\n"sv,          "k"sv, "="sv,
                               ";"sv,    "\""sv,    "'"sv,   " "sv,   "\r"sv,          "["sv, "]"sv,
                               "7"sv,    "-"sv,     "\0"sv,  "\t"sv,  "\xEF\xBB\xBF"sv};
  std::mt19937 random(20240307);
  int found = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string text = round % 2 == 0 ? "[A]\n" : "";
    for (size_t i = random() % 40; i > 0; --i) {
      const bool anyByte = round % 3 == 0 && random() % 4 == 0;
      text += anyByte ? std::string(1, static_cast<char>(random())) : std::string(kPieces[random() % kPieces.size()]);
    }
    const auto value = FindProfileValue(text, "A", "k");
    if (value.has_value() && !value->empty()) {
      ++found;
      ASSERT_GE(value->data(), text.data());
      ASSERT_LE(value->data() + value->size(), text.data() + text.size());
      ASSERT_EQ(value->find('\n'), std::string_view::npos);
      ASSERT_EQ(value->find('\0'), std::string_view::npos);
    }
    ProfileNumber(text);
  }
  EXPECT_GT(found, 100);
}

}  // namespace
}  // namespace zelk
