// SPDX-License-Identifier: GPL-2.0-only
#include "platform/file.h"

#include <array>

#include "in_world.h"
#include "platform/ini.h"
#include "platform/riff.h"
#include "platform/simulated/files.h"

namespace zelk::sim {
namespace {

const char* const kFilePath = "/world/file";

TEST(SimulatedFile, AppendsAtTheEndWhateverOthersDo) {
  CWorld world({});
  world.Files().Put(kFilePath, "old ");
  RunToEnd(world, [&] {
    CAppendFile one;
    CAppendFile other;
    EXPECT_FALSE(one.IsOpen());
    EXPECT_EQ(one.Write("x", 1), -1);
    EXPECT_TRUE(one.Open(kFilePath));
    EXPECT_TRUE(other.Open(kFilePath));
    EXPECT_EQ(one.Write("a", 1), 1);
    EXPECT_EQ(other.Write("b", 1), 1);
    EXPECT_EQ(one.Write("c", 1), 1);
    one.Close();
    EXPECT_FALSE(one.IsOpen());
  });
  EXPECT_EQ(world.Files().Read(kFilePath), "old abc");
}

TEST(SimulatedFile, ReadsAtAnyPlace) {
  CWorld world({});
  world.Files().Put(kFilePath, "0123456789");
  RunToEnd(world, [&] {
    CReadFile file;
    EXPECT_FALSE(file.Open(nullptr));
    EXPECT_FALSE(file.Open("/world/missing"));
    EXPECT_EQ(file.Size(), 0U);
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(file.Open(kFilePath));
    std::array<char, 4> bytes{};
    EXPECT_EQ(file.Size(), 10U);
    EXPECT_EQ(file.ReadAt(3, bytes.data(), bytes.size()), 4U);
    EXPECT_EQ(std::string(bytes.data(), 4), "3456");
    EXPECT_EQ(file.ReadAt(8, bytes.data(), bytes.size()), 2U);
    EXPECT_EQ(file.ReadAt(10, bytes.data(), bytes.size()), 0U);
    EXPECT_EQ(file.ReadAt(UINT64_MAX, bytes.data(), bytes.size()), 0U);
    EXPECT_EQ(file.BehindHole(3), 3U);
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.IsOpen());
  });
}

TEST(SimulatedFile, UpdatesFromTheBeginningAndAlone) {
  CWorld world({});
  world.Files().Put(kFilePath, "0123456789");
  RunToEnd(world, [&] {
    CUpdateFile file;
    CUpdateFile other;
    EXPECT_FALSE(file.OpenExisting("/world/missing"));
    EXPECT_FALSE(file.Write("x", 1));
    EXPECT_TRUE(file.OpenExisting(kFilePath));
    EXPECT_EQ(file.Size32(), 10U);
    EXPECT_FALSE(other.OpenExisting(kFilePath));
    EXPECT_TRUE(file.Write("abc", 3));
    EXPECT_TRUE(file.Write("d", 1));
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(other.OpenExisting(kFilePath));
  });
  EXPECT_EQ(world.Files().Read(kFilePath), "abcd456789");
}

TEST(SimulatedFile, SettingsAndSoundsAreReadFromTheSameFiles) {
  CWorld world({});
  world.Files().Put("/world/settings.ini", "[General]\nNumber=42\n");
  world.Files().Put("/world/sound.wav", std::string("RIFF\x0C\0\0\0WAVEdata\0\0\0\0", 20));
  RunToEnd(world, [] {
    EXPECT_EQ(ReadProfileInt("/world/settings.ini", "General", "Number", 0), 42);
    EXPECT_EQ(ReadProfileInt("/world/none.ini", "General", "Number", 7), 7);
    CRiffFile riff;
    SRiffChunk chunk;
    EXPECT_TRUE(riff.Open("/world/sound.wav"));
    EXPECT_TRUE(riff.DescendRiff(FourCc("WAVE"), chunk));
  });
}

TEST(SimulatedFile, OutsideOfAWorldThereIsNone) {
  CAppendFile file;
  EXPECT_FALSE(file.Open(kFilePath));
}

}  // namespace
}  // namespace zelk::sim
