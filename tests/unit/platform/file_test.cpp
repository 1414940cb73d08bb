// SPDX-License-Identifier: GPL-2.0-only
#include "platform/file.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "native_pipe.h"
#include "support/temp_dir.h"

namespace zelk {
namespace {

TEST(AppendFile, CreatesAMissingFile) {
  const CTempDir dir;
  CAppendFile file;
  EXPECT_FALSE(file.IsOpen());
  ASSERT_TRUE(file.Open(dir.Path("new.log")));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(file.Write("abc", 3), 3);
  EXPECT_EQ(ReadAll(dir.Path("new.log")), "abc");  // seen by others while it is open
}

TEST(AppendFile, KeepsWhatIsInTheFileAndWritesBehindIt) {
  const CTempDir dir;
  const std::string path = dir.Write("old.log", "old,");
  CAppendFile file;
  ASSERT_TRUE(file.Open(path));
  EXPECT_EQ(file.Write("new", 3), 3);
  file.Close();
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(ReadAll(path), "old,new");
}

TEST(AppendFile, WritesBehindWhatOthersWroteMeanwhile) {
  const CTempDir dir;
  CAppendFile first;
  CAppendFile second;
  ASSERT_TRUE(first.Open(dir.Path("log")));
  ASSERT_TRUE(second.Open(dir.Path("log")));
  first.Write("1", 1);
  second.Write("2", 1);
  first.Write("3", 1);
  EXPECT_EQ(ReadAll(dir.Path("log")), "123");
}

TEST(AppendFile, MayBeDeletedWhileItIsOpenAndTheNextOpenMakesANewOne) {
  const CTempDir dir;
  const std::string path = dir.Path("log");
  CAppendFile file;
  ASSERT_TRUE(file.Open(path));
  EXPECT_TRUE(std::filesystem::remove(path));
  EXPECT_EQ(file.Write("lost", 4), 4);
  ASSERT_TRUE(file.Open(path));
  EXPECT_EQ(file.Write("kept", 4), 4);
  EXPECT_EQ(ReadAll(path), "kept");
}

TEST(AppendFile, AnOpenThatFailsLeavesItClosedAndWritesFail) {
  const CTempDir dir;
  CAppendFile file;
  EXPECT_FALSE(file.Open(dir.Path("missing/log")));
  EXPECT_FALSE(file.Open(dir.Path()));  // a directory
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(file.Write("x", 1), -1);
  file.Close();
}

TEST(ReadFile, ReadsAtAnyOffsetAndStopsAtTheEnd) {
  const CTempDir dir;
  CReadFile file;
  ASSERT_TRUE(file.Open(dir.Write("f", "0123456789").c_str()));
  EXPECT_EQ(file.Size(), 10U);
  std::array<char, 16> bytes{};
  EXPECT_EQ(file.ReadAt(7, bytes.data(), bytes.size()), 3U);
  EXPECT_EQ(std::string(bytes.data(), 3), "789");
  EXPECT_EQ(file.ReadAt(2, bytes.data(), 4), 4U);
  EXPECT_EQ(std::string(bytes.data(), 4), "2345");
  EXPECT_EQ(file.ReadAt(10, bytes.data(), 1), 0U);
  EXPECT_EQ(file.ReadAt(UINT64_MAX, bytes.data(), 1), 0U);
}

TEST(ReadFile, RefusesWhatIsNotARegularFile) {
  const CTempDir dir;
  CReadFile file;
  EXPECT_FALSE(file.Open(nullptr));
  EXPECT_FALSE(file.Open(""));
  EXPECT_FALSE(file.Open(dir.Path("missing").c_str()));
  EXPECT_FALSE(file.Open(dir.Path().c_str()));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(file.Size(), 0U);
  char byte = 0;
  EXPECT_EQ(file.ReadAt(0, &byte, 1), 0U);
  EXPECT_TRUE(file.Close());
}

TEST(ReadFile, APipeOrDeviceIsNotOpened) {
  const CTempDir dir;
  const CNamedPipe pipe(dir.Path());
  CReadFile file;
  EXPECT_FALSE(file.Open(pipe.Path()));
  EXPECT_FALSE(file.Open(kDevicePath));
}

TEST(ReadFile, BehindAHoleIsNeverBehindData) {
  constexpr uint64_t kHole = 1U << 20;
  const CTempDir dir;
  const std::string path = dir.Write("f", "front");
  std::ofstream(path, std::ios::binary | std::ios::in).seekp(kHole) << "back";
  CReadFile file;
  EXPECT_EQ(file.BehindHole(7), 7U) << "not open";
  ASSERT_TRUE(file.Open(path.c_str()));
  EXPECT_EQ(file.BehindHole(0), 0U);
  EXPECT_EQ(file.BehindHole(4), 4U);
  for (const uint64_t offset : {uint64_t{5}, kHole / 2, kHole - 1}) {
    EXPECT_GE(file.BehindHole(offset), offset);
    EXPECT_LE(file.BehindHole(offset), kHole);
  }
  EXPECT_EQ(file.BehindHole(kHole + 2), kHole + 2);
  for (const uint64_t offset : {kHole + 4, kHole + 5, UINT64_MAX}) {
    EXPECT_EQ(file.BehindHole(offset), offset) << "the end and what is beyond it";
  }
}

TEST(UpdateFile, APipeOrDeviceIsNotOpened) {
  const CTempDir dir;
  const CNamedPipe pipe(dir.Path());
  CUpdateFile file;
  EXPECT_FALSE(file.OpenExisting(pipe.Path()));
  EXPECT_FALSE(file.OpenExisting(kDevicePath));
}

TEST(UpdateFile, OverwritesFromTheBeginningAndMovesOn) {
  const CTempDir dir;
  const std::string path = dir.Write("f", "0123456789");
  CUpdateFile file;
  ASSERT_TRUE(file.OpenExisting(path.c_str()));
  EXPECT_EQ(file.Size32(), 10U);
  EXPECT_TRUE(file.Write("ab", 2));
  EXPECT_TRUE(file.Write("c", 1));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadAll(path), "abc3456789");
}

TEST(UpdateFile, GrowsAFileThatIsShorter) {
  const CTempDir dir;
  const std::string path = dir.Write("f", "0");
  CUpdateFile file;
  ASSERT_TRUE(file.OpenExisting(path.c_str()));
  EXPECT_TRUE(file.Write("abc", 3));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadAll(path), "abc");
}

TEST(UpdateFile, SizeIsTheLow32Bits) {
  const CTempDir dir;
  const std::string path = dir.Write("sparse", "");
  std::filesystem::resize_file(path, (uint64_t{1} << 32) + 5);
  CUpdateFile file;
  ASSERT_TRUE(file.OpenExisting(path.c_str()));
  EXPECT_EQ(file.Size32(), 5U);
}

TEST(UpdateFile, DoesNotCreateAMissingFile) {
  const CTempDir dir;
  CUpdateFile file;
  EXPECT_FALSE(file.OpenExisting(dir.Path("missing").c_str()));
  EXPECT_FALSE(std::filesystem::exists(dir.Path("missing")));
  EXPECT_FALSE(file.OpenExisting(nullptr));
  EXPECT_FALSE(file.OpenExisting(dir.Path().c_str()));
  EXPECT_FALSE(file.Write("x", 1));
  EXPECT_TRUE(file.Close());
}

TEST(UpdateFile, ASecondOpenIsRefusedUntilTheFirstIsClosed) {
  const CTempDir dir;
  const std::string path = dir.Write("f", "x");
  CUpdateFile first;
  CUpdateFile second;
  ASSERT_TRUE(first.OpenExisting(path.c_str()));
  EXPECT_FALSE(second.OpenExisting(path.c_str()));
  EXPECT_TRUE(first.Close());
  EXPECT_TRUE(second.OpenExisting(path.c_str()));
}

}  // namespace
}  // namespace zelk
