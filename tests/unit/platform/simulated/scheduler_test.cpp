// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/scheduler.h"

#include <gtest/gtest.h>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/mutex.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

TEST(Scheduler, TimeJumpsToWhatIsDueNext) {
  CWorld world({});
  uint32_t slept = 0;
  const SOutcome outcome = RunToEnd(world, [&] {
    const uint32_t start = TickMs();
    SleepMs(600'000);
    slept = TickMs() - start;
  });
  EXPECT_EQ(slept, 600'000U);
  EXPECT_LT(outcome.steps, 20U);
}

TEST(Scheduler, TasksThatWaitInARingAreADeadlock) {
  CWorld world({});
  CMutex first;
  CMutex second;
  CEvent taken;
  // The outside goes on: not everything stands still.
  std::function<void()> tick = [&] { world.After(kUsPerMs, tick); };
  tick();
  const SOutcome outcome = world.Run([&] {
    CThread other;
    other.Start("other", [&] {
      const CScopedLock hold(second);
      taken.Set();
      const CScopedLock both(first);
    });
    const CScopedLock hold(first);
    taken.Wait();
    const CScopedLock both(second);
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kDeadlock);
  EXPECT_LT(outcome.nowUs, kUsPerSecond);
  EXPECT_NE(outcome.report.find("task 1 'main' waits for mutex 0x"), std::string::npos) << outcome.report;
  EXPECT_NE(outcome.report.find("held by task 2 'other'"), std::string::npos) << outcome.report;
  EXPECT_NE(outcome.report.find("held by task 1 'main'"), std::string::npos) << outcome.report;
}

TEST(Scheduler, AWakeUpThatIsLostIsADeadlock) {
  int lost = 0;
  for (uint64_t seed = 0; seed < 100; ++seed) {
    CWorld world({.seed = seed, .switchPerMillion = 500'000});
    CMutex lock;
    CEvent wake;
    bool hasWork = false;
    const SOutcome outcome = world.Run([&] {
      CThread worker;
      worker.Start("worker", [&] {
        lock.Lock();
        const bool isIdle = !hasWork;
        lock.Unlock();
        if (isIdle) {
          wake.Reset();  // too late: what was set since is forgotten
          wake.Wait();
        }
      });
      lock.Lock();
      hasWork = true;
      lock.Unlock();
      wake.Set();
    });
    if (outcome.verdict == EVerdict::kDeadlock) {
      ++lost;
      EXPECT_NE(outcome.report.find("'worker' waits for event"), std::string::npos) << outcome.report;
    }
  }
  EXPECT_GT(lost, 0);
  EXPECT_LT(lost, 100);
}

TEST(Scheduler, AWaitForAMutexWithoutAnEndIsFoundWhileOthersGoOn) {
  CWorld world({.mostMutexWaitUs = kUsPerSecond});
  CMutex lock;
  const SOutcome outcome = world.Run([&] {
    CThread holder;
    holder.Start("holder", [&] {
      const CScopedLock hold(lock);
      SleepMs(5000);
    });
    SleepMs(1);
    const CScopedLock hold(lock);
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kDeadlock);
  EXPECT_NE(outcome.report.find("'main' waits for a mutex without an end"), std::string::npos) << outcome.report;
}

TEST(Scheduler, AStallHoldsUpATaskThatCouldGoOn) {
  const auto timeOf = [](uint32_t stallPerMillion) {
    CWorld world({.stallPerMillion = stallPerMillion, .mostStallUs = 10 * kUsPerMs});
    return RunToEnd(world,
                    [] {
                      for (int i = 0; i < 1000; ++i) {
                        TickMs();
                      }
                    })
        .nowUs;
  };
  EXPECT_LE(timeOf(0), 2000);
  EXPECT_GT(timeOf(100'000), 100 * kUsPerMs);
}

TEST(Scheduler, AnActThatWaitsEndsTheRun) {
  CWorld world({});
  CEvent never;
  world.After(10, [&] { never.Wait(); });
  const SOutcome outcome = world.Run([] { SleepMs(1); });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("must not wait"), std::string::npos) << outcome.report;
}

// While no task runs, an act stands on what the task before it has left.
TEST(Scheduler, AnActMayStartATaskWhenAnotherHasJustEnded) {
  for (const ECarrier carrier : {kDefaultCarrier, ECarrier::kThreads}) {
    CWorld world({.carrier = carrier});
    bool hasRun = false;
    world.At(5 * kUsPerMs, [&] { world.Start("late", [&] { hasRun = true; }); });
    RunToEnd(world, [&] {
      world.Start("short", [] { SleepMs(1); });
      SleepMs(10);
    });
    EXPECT_TRUE(hasRun);
  }
}

TEST(Scheduler, ManyTasksComeAndGo) {
  CWorld world({});
  int ended = 0;
  RunToEnd(world, [&] {
    for (int i = 0; i < 2000; ++i) {
      CThread task;
      ASSERT_TRUE(task.Start("short", [&] { ++ended; }));
    }
  });
  EXPECT_EQ(ended, 2000);
}

}  // namespace
}  // namespace zelk::sim
