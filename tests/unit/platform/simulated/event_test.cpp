// SPDX-License-Identifier: GPL-2.0-only
#include "platform/event.h"

#include <memory>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

TEST(SimulatedEvent, ReleasesEveryWaitUntilItIsReset) {
  CWorld world({});
  CEvent event;
  int released = 0;
  RunToEnd(world, [&] {
    CThread one;
    CThread other;
    one.Start("one", [&] { event.Wait(), ++released; });
    other.Start("other", [&] { event.Wait(), ++released; });
    SleepMs(10);
    EXPECT_EQ(released, 0);
    event.Set();
    EXPECT_TRUE(one.JoinFor(10));
    EXPECT_TRUE(other.JoinFor(10));
    EXPECT_TRUE(event.WaitFor(0));
    event.Reset();
    EXPECT_FALSE(event.WaitFor(0));
  });
  EXPECT_EQ(released, 2);
}

// The harsher of what the systems do: who has not looked in time has seen nothing.
TEST(SimulatedEvent, OneThatIsResetBeforeTheWaiterRunsReleasesNobody) {
  CWorld world({.policy = EPolicy::kInOrder});
  CEvent event;
  bool isReleased = false;
  RunToEnd(world, [&] {
    CThread waiter;
    waiter.Start("waiter", [&] { event.Wait(), isReleased = true; });
    SleepMs(10);
    event.Set();
    event.Reset();
    SleepMs(10);
    EXPECT_FALSE(isReleased);
    event.Set();
  });
  EXPECT_TRUE(isReleased);
}

TEST(SimulatedEvent, AWaitEndsAtItsTime) {
  CWorld world({.stepUs = 0});
  CEvent event;
  RunToEnd(world, [&] {
    EXPECT_FALSE(event.WaitFor(250));
    EXPECT_EQ(world.NowUs(), 250 * kUsPerMs);
    world.After(10 * kUsPerMs, [&] { event.Set(); });
    EXPECT_TRUE(event.WaitFor(250));
    EXPECT_EQ(world.NowUs(), 260 * kUsPerMs);
  });
}

TEST(SimulatedEvent, OneThatIsDestroyedUnderAWaitIsFound) {
  CWorld world({});
  auto event = std::make_unique<CEvent>();
  const SOutcome outcome = world.Run([&] {
    CThread waiter;
    waiter.Start("waiter", [&] { event->WaitFor(1000); });
    SleepMs(1);
    event.reset();
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("an event is destroyed"), std::string::npos) << outcome.report;
}

TEST(SimulatedEvent, OutsideOfAWorldNothingWaits) {
  CEvent event;
  event.Wait();
  EXPECT_FALSE(event.WaitFor(60'000));
  event.Set();
  EXPECT_TRUE(event.WaitFor(0));
}

}  // namespace
}  // namespace zelk::sim
