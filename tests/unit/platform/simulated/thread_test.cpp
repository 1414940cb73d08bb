// SPDX-License-Identifier: GPL-2.0-only
#include "platform/thread.h"

#include <memory>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/event.h"

namespace zelk::sim {
namespace {

TEST(SimulatedThread, IsJoinedOrLeftToItself) {
  CWorld world({});
  RunToEnd(world, [&] {
    CThread quick;
    EXPECT_TRUE(quick.Start("quick", [] {}));
    EXPECT_TRUE(quick.IsStarted());
    EXPECT_FALSE(quick.Start("again", [] {}));
    EXPECT_TRUE(quick.JoinFor(100));
    EXPECT_FALSE(quick.IsStarted());
    CThread slow;
    EXPECT_TRUE(slow.Start("slow", [] { SleepMs(1000); }));
    EXPECT_FALSE(slow.JoinFor(100));
    EXPECT_TRUE(slow.JoinFor(100));
  });
}

TEST(SimulatedThread, TheDestructorWaitsButNotForItself) {
  CWorld world({});
  bool isOver = false;
  RunToEnd(world, [&] {
    {
      CThread slow;
      slow.Start("slow", [&] {
        SleepMs(1000);
        isOver = true;
      });
    }
    EXPECT_TRUE(isOver);
    auto* own = new CThread;
    own->Start("own", [own] { delete own; });
  });
}

TEST(SimulatedThread, WhatItsBodyHoldsIsDestroyedBeforeAJoinReportsTheEnd) {
  CWorld world({});
  RunToEnd(world, [&] {
    const auto held = std::make_shared<int>(1);
    CThread thread;
    thread.Start("holder", [held] { SleepMs(1); });
    EXPECT_EQ(held.use_count(), 2);
    EXPECT_TRUE(thread.JoinFor(100));
    EXPECT_EQ(held.use_count(), 1);
  });
}

TEST(SimulatedThread, EachTaskHasANumber) {
  CWorld world({});
  uint64_t inThread = 0;
  uint64_t inMain = 0;
  RunToEnd(world, [&] {
    inMain = OwnThreadNumber();
    CThread thread;
    thread.Start("thread", [&] { inThread = OwnThreadNumber(); });
  });
  EXPECT_NE(inMain, 0U);
  EXPECT_NE(inThread, 0U);
  EXPECT_NE(inMain, inThread);
  EXPECT_NE(OwnThreadNumber(), 0U);
  EXPECT_FALSE(OtherThreadsAreGone());
}

TEST(SimulatedThread, OutsideOfAWorldThereIsNone) {
  CThread thread;
  EXPECT_FALSE(thread.Start("thread", [] {}));
  EXPECT_TRUE(thread.JoinFor(0));
}

}  // namespace
}  // namespace zelk::sim
