// SPDX-License-Identifier: GPL-2.0-only
#include "platform/mutex.h"

#include <memory>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

TEST(SimulatedMutex, OneTaskHoldsItAtATime) {
  for (uint64_t seed = 0; seed < 20; ++seed) {
    CWorld world({.seed = seed, .switchPerMillion = 500'000});
    CMutex lock;
    int inside = 0;
    int turns = 0;
    const auto take = [&] {
      for (int i = 0; i < 20; ++i) {
        const CScopedLock hold(lock);
        EXPECT_EQ(++inside, 1);
        TickMs();
        --inside;
        ++turns;
      }
    };
    RunToEnd(world, [&] {
      CThread one;
      CThread other;
      one.Start("one", take);
      other.Start("other", take);
    });
    EXPECT_EQ(turns, 40);
  }
}

TEST(SimulatedMutex, TheRecursiveOneIsFreeAfterAsManyReleases) {
  CWorld world({});
  CRecursiveMutex lock;
  bool wasTaken[2] = {true, false};
  const auto tryOnce = [&](bool& taken) {
    CThread other;
    other.Start("other", [&] {
      taken = lock.TryLock();
      if (taken) {
        lock.Unlock();
      }
    });
  };
  RunToEnd(world, [&] {
    lock.Lock();
    EXPECT_TRUE(lock.TryLock());
    lock.Unlock();
    tryOnce(wasTaken[0]);
    lock.Unlock();
    tryOnce(wasTaken[1]);
  });
  EXPECT_FALSE(wasTaken[0]);
  EXPECT_TRUE(wasTaken[1]);
}

SOutcome RunBadly(std::function<void()> body) {
  CWorld world({});
  return world.Run(std::move(body));
}

TEST(SimulatedMutex, WhatMustNotBeDoneWithOneEndsTheRun) {
  auto lock = std::make_unique<CMutex>();
  const SOutcome twice = RunBadly([&] {
    lock->Lock();
    lock->Lock();
  });
  EXPECT_EQ(twice.verdict, EVerdict::kDeadlock);
  const SOutcome released = RunBadly([&] { lock->Unlock(); });
  EXPECT_EQ(released.verdict, EVerdict::kFailed);
  EXPECT_NE(released.report.find("does not hold it"), std::string::npos) << released.report;
  const SOutcome destroyed = RunBadly([&] {
    lock->Lock();
    lock.reset();
  });
  EXPECT_EQ(destroyed.verdict, EVerdict::kFailed);
  EXPECT_NE(destroyed.report.find("destroyed while"), std::string::npos) << destroyed.report;
}

TEST(SimulatedMutex, WhatAWorldLeftLockedIsFreeInTheNext) {
  CMutex lock;
  CWorld first({});
  EXPECT_EQ(first
                .Run([&] {
                  lock.Lock();
                  first.Fail("enough");
                })
                .verdict,
            EVerdict::kFailed);
  CWorld second({});
  RunToEnd(second, [&] { const CScopedLock hold(lock); });
}

// Nobody waits for anybody in this run.
TEST(SimulatedMutex, TwoOrdersOfTwoEndTheRunWhereLocksAreWatched) {
  for (const bool isWatched : {true, false}) {
    CWorld world({.watchesLocks = isWatched});
    CMutex one;
    CMutex other;
    const SOutcome outcome = world.Run([&] {
      {
        const CScopedLock first(one);
        const CScopedLock second(other);
      }
      const CScopedLock first(other);
      const CScopedLock second(one);
    });
    EXPECT_EQ(outcome.verdict, isWatched ? EVerdict::kFailed : EVerdict::kEnded);
    EXPECT_EQ(outcome.report.find("locks are taken in two orders") != std::string::npos, isWatched) << outcome.report;
  }
}

}  // namespace
}  // namespace zelk::sim
