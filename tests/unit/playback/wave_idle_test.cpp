// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <random>

#include "playback/wave.h"
#include "wave_fixture.h"

// A queue says that it is idle so that nobody fills a block from it for nothing.
namespace zelk {
namespace {

using namespace wavetest;

class WaveIdle : public CWaveTest {};

TEST_F(WaveIdle, AQueueIsIdleUntilAPlayAndAgainWhenItsSilentBlockIsFilled) {
  EXPECT_TRUE(wave.IsIdle());
  wave.Open();
  EXPECT_TRUE(wave.IsIdle());
  Queue(kBlock / 2);
  EXPECT_FALSE(wave.IsIdle());
  Fill();
  EXPECT_FALSE(wave.IsIdle());  // the next block is silent, but it ends the play
  Fill();
  EXPECT_TRUE(wave.IsIdle());
  EXPECT_TRUE(wave.QueryPlayMark());
  EXPECT_TRUE(wave.IsIdle());
}

TEST_F(WaveIdle, ABlockWithoutBytesIsAPlayToo) {
  wave.Open();
  Queue(0);
  EXPECT_FALSE(wave.IsIdle());
}

TEST_F(WaveIdle, AStopMakesItIdle) {
  wave.Open();
  Queue(1000);
  wave.Flush();
  EXPECT_TRUE(wave.IsIdle());
}

TEST_F(WaveIdle, WhatWasQueuedBeforeTheOpenIsPlayed) {
  Queue(kBlock);
  EXPECT_TRUE(wave.IsIdle());  // closed
  wave.Open();
  EXPECT_FALSE(wave.IsIdle());
}

TEST_F(WaveIdle, ADataCallbackSeesEveryBlock) {
  wave.Open();
  wave.SetDataCallback([](uint32_t, uint64_t, uint8_t*, uint32_t) {}, 0);
  EXPECT_FALSE(wave.IsIdle());
  wave.SetDataCallback(nullptr, 0);
  EXPECT_TRUE(wave.IsIdle());
}

// Whatever happened before: a fill of a queue that was idle is silent and leaves it as it is.
TEST_F(WaveIdle, AFillOfAnIdleQueueIsSilenceAndChangesNothing) {
  std::mt19937 random(7);
  int idleFills = 0;
  for (int turn = 0; turn < 20000; ++turn) {
    const auto choice = random() % 16;
    if (choice == 0)
      wave.Open();
    else if (choice == 1)
      wave.Close();
    else if (choice < 4)
      wave.Flush();
    else if (choice < 7)
      Queue(static_cast<uint32_t>(random() % 400));
    else if (choice < 9)
      wave.PlayMarkSent();
    const bool wasIdle = wave.IsIdle();
    const uint32_t left = wave.TimeLeftMs();
    const auto block = Fill();
    if (wasIdle) {
      ++idleFills;
      ASSERT_EQ(block, Silence()) << turn;
      ASSERT_EQ(wave.TimeLeftMs(), left) << turn;
      ASSERT_TRUE(wave.IsIdle()) << turn;
    }
    wave.QueryPlayMark();
  }
  EXPECT_GT(idleFills, 1000);
}

// Any change of the queue, and after each: what it shows is what the next fill, query and received block would find.
TEST_F(WaveIdle, WhetherItIsBusyIsShownAfterEveryChange) {
  std::atomic<bool> busy{true};
  wave.ShowBusyIn(busy);
  EXPECT_FALSE(busy);
  std::mt19937 random(11);
  const std::array<std::function<void()>, 10> changes = {
      [&] { wave.Open(); },
      [&] { wave.Close(); },
      [&] { wave.Flush(); },
      [&] { Queue(static_cast<uint32_t>(random() % 400)); },
      [&] { wave.PlayMarkSent(); },
      [&] {
        wave.SetFormat({7, 1, 8000, 8000, 1, 8, 0});
      },
      [&] { wave.SetFormat(SWaveFormat{}); },
      [&] { wave.StartRecord(500); },
      [&] { wave.SetDataCallback([](uint32_t, uint64_t, uint8_t*, uint32_t) {}, 0); },
      [&] { wave.SetDataCallback(nullptr, 0); },
  };
  std::array<uint8_t, kBlock> received{};
  std::array<int, 2> seen{};
  for (int turn = 0; turn < 20000; ++turn) {
    changes[random() % changes.size()]();
    ASSERT_TRUE(busy || (wave.IsIdle() && wave.Silence() == 0xD5 && wave.RecordState() != 1)) << turn;
    Fill();
    const bool beforeQuery = busy;
    const bool ends = wave.QueryPlayMark();
    ASSERT_TRUE(beforeQuery || !ends) << turn;
    ASSERT_EQ(busy, !wave.IsIdle() || wave.Silence() != 0xD5 || wave.RecordState() == 1) << turn;
    wave.RecordTap(received.data(), kBlock);
    ++seen[busy ? 1 : 0];
  }
  EXPECT_GT(seen[0], 1000);
  EXPECT_GT(seen[1], 1000);
}

}  // namespace
}  // namespace zelk
