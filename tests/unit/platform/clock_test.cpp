// SPDX-License-Identifier: GPL-2.0-only
#include "platform/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace zelk {
namespace {

TEST(Clock, TickNeverGoesBackAndFollowsASleep) {
  const uint32_t before = TickMs();
  SleepMs(20);
  const uint32_t passed = TickMs() - before;
  EXPECT_GE(passed, 20U);
  EXPECT_LT(passed, 20'000U);
}

TEST(Clock, TickCountsTheMillisecondsOfTheSteadyClock) {
  const auto start = std::chrono::steady_clock::now();
  const uint32_t before = TickMs();
  uint32_t last = before;
  while (TickMs() - before < 5) {
    const uint32_t now = TickMs();
    ASSERT_LT(now - last, 0x80000000U);
    last = now;
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4));
}

TEST(Clock, UnixTimeIsTheSystemsUtcInWholeMilliseconds) {
  using std::chrono::system_clock;
  const auto before = system_clock::to_time_t(system_clock::now());
  const SUnixTime now = UnixNow();
  const auto after = system_clock::to_time_t(system_clock::now());
  EXPECT_GE(now.seconds, before);
  EXPECT_LE(now.seconds, after);
  EXPECT_GE(now.microseconds, 0);
  EXPECT_LE(now.microseconds, 999'000);
  EXPECT_EQ(now.microseconds % 1000, 0);
}

bool SameSecond(const SLocalTime& left, const tm& right) {
  return left.year == right.tm_year + 1900 && left.month == right.tm_mon + 1 && left.day == right.tm_mday &&
         left.hour == right.tm_hour && left.minute == right.tm_min && left.second == right.tm_sec;
}

// The second may turn between the two readings, so the reading must equal one of those around it.
TEST(Clock, LocalTimeIsTheLocalTimeOfNowOnEveryCall) {
  for (int i = 0; i < 1000; ++i) {
    const time_t before = std::time(nullptr);
    const SLocalTime now = LocalNow();
    const time_t after = std::time(nullptr);
    bool matched = false;
    for (time_t second = before; second <= after; ++second) {
      matched = matched || SameSecond(now, *std::localtime(&second));
    }
    ASSERT_TRUE(matched);
  }
}

TEST(Clock, LocalTimeMovesOnWithTheSecond) {
  const SLocalTime first = LocalNow();
  const uint32_t start = TickMs();
  while (LocalNow().second == first.second && TickMs() - start < 5000) {
    SleepMs(1);
  }
  EXPECT_NE(LocalNow().second, first.second);
}

TEST(Clock, EveryThreadSeesTheSameLocalTime) {
  SLocalTime other{};
  SLocalTime before{};
  SLocalTime after{};
  do {  // until no second turned in between
    before = LocalNow();
    std::thread([&other] { other = LocalNow(); }).join();
    after = LocalNow();
  } while (before.second != after.second);
  EXPECT_EQ(other.second, before.second);
  EXPECT_EQ(other.minute, before.minute);
  EXPECT_EQ(other.year, before.year);
}

TEST(Clock, ASleepOfZeroReturnsAtOnce) {
  const uint32_t before = TickMs();
  SleepMs(0);
  EXPECT_LT(TickMs() - before, 1000U);
}

}  // namespace
}  // namespace zelk
