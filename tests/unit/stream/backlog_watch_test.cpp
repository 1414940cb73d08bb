// SPDX-License-Identifier: GPL-2.0-only
#include "stream/backlog_watch.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

class BacklogWatch : public testing::Test {
 protected:
  // Packets that wait already, one a millisecond; how many lines they gave.
  int Waiting(uint32_t milliseconds) {
    int lines = 0;
    for (uint32_t i = 0; i < milliseconds; ++i)
      lines += watch.IsLineDue(now++, lastLine) ? 1 : 0;
    return lines;
  }

  uint32_t now = 0xFFFFFF00;  // the counter wraps on the way
  std::atomic<uint64_t> lastLine{CBacklogWatch::kNoLine};
  CBacklogWatch watch;
};

TEST_F(BacklogWatch, AThreadThatFindsTheSocketEmptyWithinTwoSecondsKeepsUp) {
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(Waiting(2000), 0) << i;
    watch.CaughtUp();
  }
}

TEST_F(BacklogWatch, OneThatDoesNotGivesALineAndThenOneAMinute) {
  EXPECT_EQ(Waiting(2000), 0);
  EXPECT_EQ(Waiting(1), 1);
  EXPECT_EQ(watch.BehindMs(), 2000U);
  EXPECT_EQ(Waiting(59999), 0);
  EXPECT_EQ(Waiting(1), 1);
  EXPECT_EQ(watch.BehindMs(), 62000U);
  EXPECT_EQ(Waiting(10 * 60000), 10);
}

TEST_F(BacklogWatch, FallingBehindAgainWithinTheMinuteGivesNoSecondLine) {
  EXPECT_EQ(Waiting(2500), 1);
  watch.CaughtUp();
  EXPECT_EQ(Waiting(30000), 0);
  watch.CaughtUp();
  now += 60000;
  EXPECT_EQ(Waiting(2000), 0);
  EXPECT_EQ(Waiting(1), 1);
}

TEST_F(BacklogWatch, TheNextGenerationOfTheCardGoesByTheSameMinute) {
  EXPECT_EQ(Waiting(2500), 1);
  watch = CBacklogWatch();
  EXPECT_EQ(Waiting(30000), 0);
  EXPECT_EQ(Waiting(30000), 1);
}

TEST_F(BacklogWatch, AMomentOfTheCounterThatIs0IsRemembered) {
  now = 0U - 2000;
  EXPECT_EQ(Waiting(2001), 1);
  EXPECT_EQ(now, 1U);
  EXPECT_EQ(Waiting(59999), 0);
}

}  // namespace
}  // namespace zelk
