// SPDX-License-Identifier: GPL-2.0-only
#include "stream/pacer_schedule.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(PacerSchedule, APassIsDueEvery20Ms) {
  CPacerSchedule schedule(1000);
  uint32_t wait = 0;
  EXPECT_FALSE(schedule.PassDue(1000, wait));
  EXPECT_EQ(wait, 20U);
  EXPECT_FALSE(schedule.PassDue(1019, wait));
  EXPECT_EQ(wait, 1U);
  EXPECT_TRUE(schedule.PassDue(1020, wait));
  EXPECT_FALSE(schedule.PassDue(1023, wait));
  EXPECT_EQ(wait, 17U);
}

TEST(PacerSchedule, APassThatIsDueWaitsForNothing) {
  CPacerSchedule schedule(0);
  uint32_t wait = 99;
  EXPECT_TRUE(schedule.PassDue(20, wait));
  EXPECT_EQ(wait, 0U);
}

TEST(PacerSchedule, LatePassesAreMadeUpForOneByOneOnTheOldGrid) {
  CPacerSchedule schedule(0);
  uint32_t wait = 0;
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(schedule.PassDue(107, wait));
  EXPECT_FALSE(schedule.PassDue(107, wait));
  EXPECT_EQ(wait, 13U);
}

TEST(PacerSchedule, TheCounterMayWrap) {
  CPacerSchedule schedule(0xFFFFFFF0);
  uint32_t wait = 0;
  EXPECT_FALSE(schedule.PassDue(0xFFFFFFFF, wait));
  EXPECT_EQ(wait, 5U);
  EXPECT_TRUE(schedule.PassDue(4, wait));
  EXPECT_FALSE(schedule.PassDue(4, wait));
  EXPECT_EQ(wait, 20U);
}

// A pacer that rested: what was due meanwhile is not made up for, and the grid is the old one.
TEST(PacerSchedule, SkippedPassesAreGoneAndTheGridStays) {
  for (const uint32_t start : {0U, 1000U, 0xFFFFFFF0U}) {
    CPacerSchedule schedule(start);
    uint32_t waitMs = 0;
    schedule.Skip(start + 107);
    EXPECT_FALSE(schedule.PassDue(start + 107, waitMs));
    EXPECT_EQ(waitMs, 13U);
    EXPECT_TRUE(schedule.PassDue(start + 120, waitMs));
    EXPECT_FALSE(schedule.PassDue(start + 120, waitMs));
    schedule.Skip(start + 125);
    EXPECT_FALSE(schedule.PassDue(start + 139, waitMs));
    EXPECT_TRUE(schedule.PassDue(start + 140, waitMs));
  }
}

}  // namespace
}  // namespace zelk
