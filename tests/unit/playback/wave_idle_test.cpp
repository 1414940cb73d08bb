// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace zelk
