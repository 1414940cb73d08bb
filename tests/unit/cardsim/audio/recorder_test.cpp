// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/recorder.h"

#include <gtest/gtest.h>

#include <thread>

namespace cardsim {
namespace {

using namespace std::chrono_literals;

TEST(Recorder, FindsAPatternThatArrivesInPieces) {
  CRecorder recorder;
  const Bytes pattern{5, 6, 7, 8};
  std::size_t at = 0;
  std::thread writer([&] {
    for (const std::uint8_t byte : Bytes{1, 5, 6, 5, 6, 7, 8, 9}) {
      recorder.Append(ByteView(&byte, 1), 0);
    }
  });
  EXPECT_TRUE(recorder.WaitContains(pattern, 5s, &at));
  writer.join();
  EXPECT_EQ(at, 3U);
}

TEST(Recorder, WaitsEndWithFalseWhenTheTimeIsOver) {
  CRecorder recorder;
  recorder.Append(Bytes{1, 2, 3}, 0);
  EXPECT_FALSE(recorder.WaitSize(4, 1ms));
  EXPECT_TRUE(recorder.WaitSize(3, 0ms));
  EXPECT_FALSE(recorder.WaitContains(Bytes{3, 2}, 1ms));
  EXPECT_FALSE(recorder.WaitContains(Bytes{}, 1ms));
}

TEST(Recorder, ClearForgetsAllAndTheNextFrameIsTheFirst) {
  CRecorder recorder;
  recorder.Append(Bytes{1, 2, 3}, 40);
  EXPECT_EQ(recorder.FirstFrame(), 40U);
  recorder.Clear();
  EXPECT_EQ(recorder.Size(), 0U);
  recorder.Append(Bytes{4}, 90);
  EXPECT_EQ(recorder.FirstFrame(), 90U);
  EXPECT_EQ(recorder.Samples(), Bytes{4});
}

TEST(Recorder, OneWithASinkHandsTheBytesOnAndKeepsNone) {
  Bytes taken;
  std::uint64_t at = 0;
  CRecorder recorder([&](ByteView data, std::uint64_t frame) {
    taken.insert(taken.end(), data.begin(), data.end());
    at = frame;
  });
  recorder.Append(Bytes{1, 2}, 40);
  recorder.Append(Bytes{3}, 42);
  EXPECT_EQ(taken, (Bytes{1, 2, 3}));
  EXPECT_EQ(at, 42U);
  EXPECT_EQ(recorder.Size(), 0U);
}

}  // namespace
}  // namespace cardsim
