// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/stop_flag.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"

namespace zelk {
namespace {

TEST(StopFlag, WakesItsSleeperAtOnce) {
  CStopFlag stop;
  EXPECT_FALSE(stop.IsSet());
  const uint32_t before = TickMs();
  std::thread sleeper([&stop] { stop.SleepFor(60000); });
  stop.Set();
  sleeper.join();
  EXPECT_TRUE(stop.IsSet());
  EXPECT_LT(TickMs() - before, 30000U);
}

TEST(StopFlag, LetsNobodySleepOnceItIsSet) {
  CStopFlag stop;
  stop.Set();
  const uint32_t before = TickMs();
  stop.SleepFor(60000);
  EXPECT_LT(TickMs() - before, 30000U);
}

}  // namespace
}  // namespace zelk
