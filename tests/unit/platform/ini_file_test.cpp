// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini_file.h"

#include <gtest/gtest.h>

#include <array>
#include <new>
#include <vector>

#include "platform/ini.h"
#include "support/allocation_probe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

// Two differences are known and left out, both Wine's own: a number's digits after the 29th are not read, and of a
// quoted text that does not fit the buffer one character more is cut.
//
// What settings files hold and what people make of them; every key that is asked for is looked up in each.
const std::vector<std::string> kCorpus{
    "",
    "[General]\r\nLevel=1\r\n",
    "[General]\nLevel=1\n",
    "[General]\nLevel=1",
    "Level=1\n[General]\n",
    "[general]\nlevel=3\n",
    "[GENERAL]\nLEVEL = 4 \n",
    "  [General]  \n  Level  =  5  \n",
    "[General]\nLevel=-7\n",
    "[General]\nLevel=+7\n",
    "[General]\nLevel=12abc\n",
    "[General]\nLevel=abc\n",
    "[General]\nLevel=\n",
    "[General]\nLevel\n",
    "[General]\n=5\nLevel=6\n",
    "[General]\nLevel=1\nLevel=2\n",
    "[General]\nOther=1\n[General]\nLevel=2\n",
    "[General]\n;Level=1\nLevel=2\n",
    "[General]\nLevel=3 ; a remark\n",
    "[General]\nLevel=\"8\"\n",
    "[General]\nLevel='8'\n",
    "[General]\nLevel=\"8\n",
    "[General]\nLevel=\" 8 \"\n",
    "[General]\nLevel=a=b\n",
    "[Other]\nLevel=1\n",
    "[General\nLevel=1\n",
    "General]\nLevel=1\n",
    "[ General ]\nLevel=9\n",
    "[General] behind\nLevel=1\n",
    "[100234-2]\nLevel=2\n[General]\nLevel=1\n",
    "[General]\nLevel=4294967295\n",
    "[General]\nLevel=99999999999\n",
    "[General]\n\n\n\tLevel\t=\t7\t\n",
    "\xEF\xBB\xBF[General]\nLevel=1\n",
    "[General]\nLevel=6.3\n",
    "[General]\nLevel= -6.3e1 \n",
    "[General]\r\n\r\n; remark\r\nLevel=1\r\n[Dtmf]\r\nLevel=2\r\n",
};

constexpr std::array<const char*, 4> kSections{"General", "gENERAL", "100234-2", "Dtmf"};

class IniFile : public testing::TestWithParam<std::string> {
 protected:
  CTempDir dir;
};

TEST_P(IniFile, NumbersAreReadAsTheSystemReadsThem) {
  const std::string path = dir.Write("z.ini", GetParam());
  for (const char* section : kSections) {
    EXPECT_EQ(ReadIniFileInt(path, section, "Level", -3), ReadProfileInt(path, section, "Level", -3)) << section;
  }
}

TEST_P(IniFile, TextsAreReadAsTheSystemReadsThem) {
  const std::string path = dir.Write("z.ini", GetParam());
  for (const char* section : kSections) {
    for (const size_t capacity : {1U, 5U, 100U}) {
      EXPECT_EQ(ReadIniFileString(path, section, "Level", "7.0", capacity),
                ReadProfileString(path, section, "Level", "7.0", capacity))
          << section << " " << capacity;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, IniFile, testing::ValuesIn(kCorpus));

TEST(IniFileLongText, IsCutAsTheSystemCutsIt) {
  const CTempDir dir;
  const std::string path = dir.Write("z.ini", "[General]\nLevel=" + std::string(300, '1') + "\n");
  EXPECT_EQ(ReadIniFileString(path, "General", "Level", "7.0", 100), std::string(99, '1'));
  EXPECT_EQ(ReadProfileString(path, "General", "Level", "7.0", 100), std::string(99, '1'));
}

TEST(IniFileDefaults, AMissingFileGivesThem) {
  const CTempDir dir;
  EXPECT_EQ(ReadIniFileInt(dir.Path("none.ini"), "General", "Level", 2), 2);
  EXPECT_EQ(ReadIniFileString(dir.Path("none.ini"), "General", "Level", "7.0", 100), "7.0");
}

// No value is made of a file that memory did not hold: the caller gets to know.
TEST(IniFileWithoutMemory, AReadGivesTheValueOrThrows) {
  const CTempDir dir;
  const std::string path = dir.Write("z.ini", "[General]\nLevel=7\nName=" + std::string(100, 'x') + "\n");
  uint32_t failures = 0;
  for (bool threw = true; threw;) {
    int32_t number = 0;
    std::string text;
    support::FailAllocation(failures + 1);
    try {
      number = ReadIniFileInt(path, "General", "Level", 2);
      text = ReadIniFileString(path, "General", "Name", "default", 1000);
      threw = false;
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    support::FailAllocation(0);
    EXPECT_TRUE(number == 7 || (threw && number == 0)) << number;
    EXPECT_TRUE(text == std::string(100, 'x') || (threw && text.empty())) << text;
    EXPECT_TRUE(threw || failures >= 4);
  }
}

}  // namespace
}  // namespace zelk
