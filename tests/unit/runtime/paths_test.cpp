// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/paths.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(Paths, LogAndIniStandBesideTheLibraryWithoutItsWidthMark) {
  const SLibraryPaths paths = DerivePaths("C:\\Dir\\ZelkApi64.dll", '\\');
  EXPECT_EQ(paths.directory, "C:\\Dir\\");
  EXPECT_EQ(paths.log, "C:\\Dir\\ZelkApi.log");
  EXPECT_EQ(paths.ini, "C:\\Dir\\ZelkApi.ini");
}

TEST(Paths, TheSameRuleServesTheLinuxName) {
  const SLibraryPaths paths = DerivePaths("/opt/zelk/libZelkApi-64.so", '/');
  EXPECT_EQ(paths.directory, "/opt/zelk/");
  EXPECT_EQ(paths.log, "/opt/zelk/libZelkApi.log");
  EXPECT_EQ(paths.ini, "/opt/zelk/libZelkApi.ini");
  EXPECT_EQ(paths.status, "/opt/zelk/libZelkApi.status");
}

TEST(Paths, SixCharactersAreCutWhateverTheyAre) {
  EXPECT_EQ(DerivePaths("C:\\A\\X64.dll", '\\').log, "C:\\A\\X.log");
  EXPECT_EQ(DerivePaths("C:\\A\\X64.dll", '\\').ini, "C:\\A\\X.ini");
  EXPECT_EQ(DerivePaths("/bin/unit_api", '/').log, "/bin/un.log");
  EXPECT_EQ(DerivePaths("1234567", '/').log, "1.log");
}

TEST(Paths, APathOfSixCharactersOrFewerIsNotCut) {
  EXPECT_EQ(DerivePaths("123456", '/').log, "123456.log");
  EXPECT_EQ(DerivePaths("123456", '/').ini, "123456.ini");
  EXPECT_EQ(DerivePaths("a", '/').ini, "a.ini");
  EXPECT_EQ(DerivePaths("", '/').log, ".log");
}

TEST(Paths, TheDirectoryKeepsItsLastSeparator) {
  EXPECT_EQ(DerivePaths("/a/b/c.so", '/').directory, "/a/b/");
  EXPECT_EQ(DerivePaths("/c.so", '/').directory, "/");
  EXPECT_EQ(DerivePaths("/a/b/", '/').directory, "/a/b/");
}

TEST(Paths, WithoutASeparatorTheDirectoryIsTheWholePath) {
  EXPECT_EQ(DerivePaths("ZelkApi64.dll", '\\').directory, "ZelkApi64.dll");
  EXPECT_EQ(DerivePaths("/a/ZelkApi64.dll", '\\').directory, "/a/ZelkApi64.dll");
  EXPECT_EQ(DerivePaths("", '\\').directory, "");
}

TEST(Paths, TheCutMayReachIntoTheDirectory) {
  EXPECT_EQ(DerivePaths("/ab/c.so", '/').log, "/a.log");
}

}  // namespace
}  // namespace zelk
