// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace zelk {
namespace {

class Ini : public testing::Test {
 protected:
  std::string Write(std::string_view text) { return dir.Write("z.ini", text); }
  CTempDir dir;
};

TEST_F(Ini, AMissingFileGivesTheDefaults) {
  EXPECT_EQ(ReadProfileInt(dir.Path("none.ini"), "A", "k", -3), -3);
  EXPECT_EQ(ReadProfileString(dir.Path("none.ini"), "A", "k", "6.3", 100), "6.3");
}

TEST_F(Ini, ADirectoryReadsAsAMissingFile) {
  EXPECT_EQ(ReadProfileInt(dir.Path(), "A", "k", 5), 5);
}

TEST_F(Ini, AMissingSectionOrKeyGivesTheDefault) {
  const std::string path = Write("[A]\nk=1\n");
  EXPECT_EQ(ReadProfileInt(path, "B", "k", 7), 7);
  EXPECT_EQ(ReadProfileInt(path, "A", "m", 8), 8);
  EXPECT_EQ(ReadProfileString(path, "A", "m", "text", 100), "text");
}

TEST_F(Ini, TheFileIsReadAfreshAtEachCall) {
  const std::string path = Write("[A]\nk=1\n");
  EXPECT_EQ(ReadProfileInt(path, "A", "k", 0), 1);
  Write("[A]\nk=2\n");
  EXPECT_EQ(ReadProfileInt(path, "A", "k", 0), 2);
}

TEST_F(Ini, AValueThatDoesNotBeginWithANumberIsZeroNotTheDefault) {
  EXPECT_EQ(ReadProfileInt(Write("[A]\nk=abc\n"), "A", "k", 5), 0);
}

TEST_F(Ini, AnEmptyValueGivesTheDefaultNumberAndTheEmptyText) {
  const std::string path = Write("[A]\nk=\nq=\"\"\n");
  EXPECT_EQ(ReadProfileInt(path, "A", "k", 5), 5);
  EXPECT_EQ(ReadProfileInt(path, "A", "q", 5), 5);
  EXPECT_EQ(ReadProfileString(path, "A", "k", "6.3", 100), "");
}

TEST_F(Ini, AQuotedNumberIsANumber) {
  EXPECT_EQ(ReadProfileInt(Write("[A]\nk=\"5\"\n"), "A", "k", 0), 5);
}

TEST_F(Ini, ATextIsCutToTheCapacityLessOne) {
  const std::string path = Write("[A]\nk=" + std::string(150, 'x') + "\n");
  EXPECT_EQ(ReadProfileString(path, "A", "k", "", 100), std::string(99, 'x'));
  EXPECT_EQ(ReadProfileString(path, "A", "m", "default", 4), "def");
  EXPECT_EQ(ReadProfileString(path, "A", "k", "", 1), "");
  EXPECT_EQ(ReadProfileString(path, "A", "k", "", 0), "");
}

TEST_F(Ini, NullNamesFindNothing) {
  const std::string path = Write("[A]\nk=1\n");
  EXPECT_EQ(ReadProfileInt(path, nullptr, "k", 4), 4);
  EXPECT_EQ(ReadProfileInt(path, "A", nullptr, 4), 4);
  EXPECT_EQ(ReadProfileString(path, "A", nullptr, nullptr, 10), "");
}

}  // namespace
}  // namespace zelk
