// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/files.h"

#include <string>

#include "in_world.h"
#include "platform/file.h"

namespace zelk::sim {
namespace {

const std::string kPath = "/world/file";

TEST(Files, AreWhatTheTestAndTheLibraryMadeOfThem) {
  CWorld world({});
  world.Files().Put("/world/b", "two");
  RunToEnd(world, [&] {
    CAppendFile file;
    EXPECT_TRUE(file.Open("/world/a"));
    EXPECT_EQ(file.Write("one", 3), 3);
  });
  EXPECT_EQ(world.Files().Names(), (std::vector<std::string>{"/world/a", "/world/b"}));
  EXPECT_EQ(world.Files().Read("/world/a"), "one");
  EXPECT_EQ(world.Files().Read("/world/c"), std::nullopt);
}

TEST(Files, AFullDiskTakesWhatFits) {
  CWorld world({});
  world.Files().SetRoom(5);
  RunToEnd(world, [&] {
    CAppendFile file;
    EXPECT_TRUE(file.Open(kPath));
    EXPECT_EQ(file.Write("abc", 3), 3);
    EXPECT_EQ(file.Write("def", 3), 2);
    EXPECT_EQ(file.Write("f", 1), -1);
    CAppendFile other;
    EXPECT_FALSE(other.Open("/world/other"));
    world.Files().SetRoom(CFiles::kNoLimit);
    EXPECT_EQ(file.Write("f", 1), 1);
  });
  EXPECT_EQ(world.Files().Read(kPath), "abcdef");
}

TEST(Files, WhatCannotBeWrittenCanBeRead) {
  CWorld world({});
  world.Files().Put(kPath, "text");
  world.Files().SetWritable(kPath, false);
  RunToEnd(world, [&] {
    CAppendFile append;
    CUpdateFile update;
    CReadFile read;
    EXPECT_FALSE(append.Open(kPath));
    EXPECT_FALSE(update.OpenExisting(kPath.c_str()));
    EXPECT_TRUE(read.Open(kPath.c_str()));
    world.Files().SetWritable(kPath, true);
    EXPECT_TRUE(append.Open(kPath));
  });
}

TEST(Files, OneThatIsRenamedOrDeletedLivesOnForThoseThatHaveIt) {
  CWorld world({});
  RunToEnd(world, [&] {
    CAppendFile file;
    EXPECT_TRUE(file.Open(kPath));
    EXPECT_TRUE(world.Files().Rename(kPath, "/world/old"));
    EXPECT_FALSE(world.Files().Rename(kPath, "/world/old"));
    EXPECT_EQ(file.Write("a", 1), 1);
    EXPECT_EQ(world.Files().Read("/world/old"), "a");
    EXPECT_TRUE(world.Files().Remove("/world/old"));
    EXPECT_FALSE(world.Files().Remove("/world/old"));
    EXPECT_EQ(file.Write("b", 1), 1);
    EXPECT_TRUE(file.Open(kPath));
    EXPECT_EQ(file.Write("c", 1), 1);
  });
  EXPECT_EQ(world.Files().Read(kPath), "c");
}

// How many of a thousand calls did not do all that they should have.
int Failures(const SFileFaults& faults, const std::function<bool(CAppendFile&)>& isWhole) {
  CWorld world({});
  int failed = 0;
  RunToEnd(world, [&] {
    CAppendFile file;
    EXPECT_TRUE(file.Open(kPath));
    world.Files().SetFaults(faults);
    for (int i = 0; i < 1000; ++i) {
      failed += isWhole(file) ? 0 : 1;
    }
  });
  return failed;
}

TEST(Files, CallsFailAsOftenAsTheyAreAskedTo) {
  const auto write = [](CAppendFile& file) { return file.Write("0123456789", 10) == 10; };
  const auto open = [](CAppendFile&) { return CAppendFile().Open("/world/other"); };
  const auto read = [](CAppendFile&) {
    CReadFile file;
    char bytes[10];
    CWorld::Current()->Files().Put("/world/read", "0123456789");
    return file.Open("/world/read") && file.ReadAt(0, bytes, sizeof bytes) == sizeof bytes;
  };
  const auto close = [](CAppendFile&) {
    CUpdateFile file;
    return file.OpenExisting("/world/file") && file.Close();
  };
  EXPECT_EQ(Failures({}, write) + Failures({}, open) + Failures({}, read) + Failures({}, close), 0);
  for (const int failed :
       {Failures({.writePerMillion = 100'000}, write), Failures({.shortWritePerMillion = 100'000}, write),
        Failures({.openPerMillion = 100'000}, open), Failures({.shortReadPerMillion = 100'000}, read),
        Failures({.closePerMillion = 100'000}, close)}) {
    EXPECT_GT(failed, 50);
    EXPECT_LT(failed, 150);
  }
}

}  // namespace
}  // namespace zelk::sim
