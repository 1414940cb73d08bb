// SPDX-License-Identifier: GPL-2.0-only
#include "card/timer_wait.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(TimerWait, IsTheTimeUntilTheTimer) {
  EXPECT_EQ(TimerWaitMs({100, 50000}, {100, 0}), 50);
  EXPECT_EQ(TimerWaitMs({100, 99999}, {100, 0}), 100);
}

TEST(TimerWait, BorrowsASecond) {
  EXPECT_EQ(TimerWaitMs({101, 10000}, {100, 990000}), 20);
}

TEST(TimerWait, PartMillisecondsCountAsWholeOnes) {
  EXPECT_EQ(TimerWaitMs({100, 1}, {100, 0}), 1);
  EXPECT_EQ(TimerWaitMs({100, 1001}, {100, 0}), 2);
}

TEST(TimerWait, IsNothingForATimerThatIsDue) {
  EXPECT_EQ(TimerWaitMs({100, 5000}, {100, 5000}), 0);
  EXPECT_EQ(TimerWaitMs({100, 0}, {100, 1000}), 0);
  EXPECT_EQ(TimerWaitMs({99, 999000}, {2000000000, 0}), 0);
}

TEST(TimerWait, IsAtMostATenthOfASecond) {
  EXPECT_EQ(TimerWaitMs({100, 100000}, {100, 0}), 100);
  EXPECT_EQ(TimerWaitMs({101, 0}, {100, 0}), 100);
  EXPECT_EQ(TimerWaitMs({5000000000, 0}, {100, 0}), 100);
}

TEST(TimerWait, TakesTheFullSecondThatLibpriWritesAsMicroseconds) {
  EXPECT_EQ(TimerWaitMs({100, 1000000}, {100, 990000}), 10);
  EXPECT_EQ(TimerWaitMs({100, 1000000}, {100, 0}), 100);
}

TEST(MsToBeat, IsTheRestOfATenthOfASecond) {
  EXPECT_EQ(MsToBeat(0), 100);
  EXPECT_EQ(MsToBeat(1), 99);
  EXPECT_EQ(MsToBeat(99), 1);
  EXPECT_EQ(MsToBeat(123456), 44);
}

TEST(MsToBeat, StaysWithinATenthOfASecondWhereTheClockBeginsAgain) {
  EXPECT_EQ(MsToBeat(UINT32_MAX), 5);
}

TEST(GatherMs, IsSixMillisecondsAfterReadsThatFollowOneAnother) {
  EXPECT_EQ(GatherMs(0, 11, 8000), 6U);
  EXPECT_EQ(GatherMs(12, 7999, 8000), 6U);
}

TEST(GatherMs, IsNothingForAReadOnItsOwn) {
  EXPECT_EQ(GatherMs(13, 11, 8000), 0U);
  EXPECT_EQ(GatherMs(250, 10, 8000), 0U);
  EXPECT_EQ(GatherMs(UINT32_MAX, 10, 8000), 0U);
}

TEST(GatherMs, IsNothingWhenMoreWaitsAlready) {
  EXPECT_EQ(GatherMs(0, 8000, 8000), 0U);
}

TEST(IsEarlier, ComparesSecondsFirst) {
  EXPECT_TRUE(IsEarlier({1, 999}, {2, 0}));
  EXPECT_FALSE(IsEarlier({2, 0}, {1, 999}));
  EXPECT_TRUE(IsEarlier({2, 0}, {2, 1}));
  EXPECT_FALSE(IsEarlier({2, 1}, {2, 1}));
}

}  // namespace
}  // namespace zelk
