// SPDX-License-Identifier: GPL-2.0-only
#include "platform/clock.h"

#include <sys/time.h>

#include <ctime>

#include "in_world.h"

extern "C" {
int zelk_world_time_of_day(timeval* now, void* zone);
time_t zelk_world_time(time_t* now);
long zelk_world_random(void);
}

namespace zelk::sim {
namespace {

TEST(SimulatedClock, TheTickWrapsAndTheWallClockGoesOn) {
  CWorld world({.startUnixMs = 1'700'000'000'000, .startTickMs = 0xFFFFFF00U});
  RunToEnd(world, [] {
    const uint32_t start = TickMs();
    const SUnixTime wallStart = UnixNow();
    EXPECT_EQ(start, 0xFFFFFF00U);
    EXPECT_EQ(wallStart.seconds, 1'700'000'000);
    SleepMs(1000);
    EXPECT_LT(TickMs(), start);
    EXPECT_EQ(TickMs() - start, 1000U);
    EXPECT_EQ(UnixNow().seconds, 1'700'000'001);
  });
}

TEST(SimulatedClock, TheWallClockLeapsBothWaysAndTheTickDoesNot) {
  CWorld world({.startUnixMs = 1'700'000'000'500});
  RunToEnd(world, [&] {
    const uint32_t tick = TickMs();
    world.LeapWallClock(3'600'000);
    EXPECT_EQ(UnixNow().seconds, 1'700'003'600);
    EXPECT_EQ(UnixNow().microseconds, 500'000);
    world.LeapWallClock(-7'200'000);
    EXPECT_EQ(UnixNow().seconds, 1'699'996'400);
    EXPECT_EQ(TickMs(), tick);
  });
}

TEST(SimulatedClock, LocalTimeIsTheWallClockBrokenDown) {
  // 29 February 2024, 23:59:58 UTC.
  CWorld world({.startUnixMs = 1'709'251'198'000});
  RunToEnd(world, [] {
    const SLocalTime before = LocalNow();
    EXPECT_EQ(before.year, 2024);
    EXPECT_EQ(before.month, 2);
    EXPECT_EQ(before.day, 29);
    EXPECT_EQ(before.hour, 23);
    EXPECT_EQ(before.minute, 59);
    EXPECT_EQ(before.second, 58);
    SleepMs(2000);
    const SLocalTime after = LocalNow();
    EXPECT_EQ(after.month, 3);
    EXPECT_EQ(after.day, 1);
    EXPECT_EQ(after.hour, 0);
    EXPECT_EQ(after.second, 0);
  });
}

TEST(SimulatedClock, LibpriSeesTheSameTime) {
  CWorld world({.startUnixMs = 1'700'000'000'000});
  RunToEnd(world, [] {
    SleepMs(1250);
    timeval now{};
    EXPECT_EQ(zelk_world_time_of_day(&now, nullptr), 0);
    EXPECT_EQ(now.tv_sec, 1'700'000'001);
    EXPECT_EQ(now.tv_usec, 250'000);
    time_t second = 0;
    EXPECT_EQ(zelk_world_time(&second), 1'700'000'001);
    EXPECT_EQ(second, 1'700'000'001);
  });
}

TEST(SimulatedClock, LibprisChanceIsTheSeeds) {
  const auto drawn = [](uint64_t seed) {
    CWorld world({.seed = seed});
    long value = -1;
    RunToEnd(world, [&] { value = zelk_world_random(); });
    return value;
  };
  EXPECT_GE(drawn(1), 0);
  EXPECT_EQ(drawn(1), drawn(1));
  EXPECT_NE(drawn(1), drawn(2));
}

TEST(SimulatedClock, OutsideOfAWorldNothingWaits) {
  SleepMs(60'000);
  EXPECT_EQ(TickMs(), 0U);
  EXPECT_EQ(UnixNow().seconds, 0);
  EXPECT_TRUE(SleepsAreExact());
}

}  // namespace
}  // namespace zelk::sim
