// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/world.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/file.h"
#include "platform/mutex.h"
#include "platform/simulated/files.h"
#include "platform/simulated/network.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

// Tasks that lock, wait, send, write and sleep, with an echo outside that loses some.
void BeBusy(CWorld& world) {
  CMutex lock;
  CEvent go;
  int count = 0;
  std::vector<std::unique_ptr<CThread>> threads;
  for (int i = 0; i < 4; ++i) {
    threads.push_back(std::make_unique<CThread>());
    threads.back()->Start("worker", [&] {
      CSocket socket;
      socket.OpenUdp();
      CAppendFile file;
      file.Open("/world/file");
      go.Wait();
      for (int round = 0; round < 50; ++round) {
        const CScopedLock hold(lock);
        ++count;
        socket.SendTo(&count, sizeof count, kCard);
        file.Write(&count, sizeof count);
        SleepMs(static_cast<uint32_t>(world.Random().Below(3)));
      }
    });
  }
  SleepMs(10);
  go.Set();
}

SOutcome RunBusy(SWorldOptions options) {
  options.stallPerMillion = 10'000;
  CWorld world(options);
  world.Network().SetDefaultLink({.jitterUs = 500, .lossPerMillion = 100'000, .duplicatePerMillion = 100'000});
  std::unique_ptr<CDatagrams> echo = world.Network().OpenDatagrams(
      kCard, [&](std::span<const uint8_t> data, SIpv4Endpoint from) { echo->SendTo(data, from); });
  return RunToEnd(world, [&] { BeBusy(world); });
}

TEST(World, DoesTheSameAgainFromTheSameSeed) {
  for (const EPolicy policy : {EPolicy::kRandom, EPolicy::kPriorities, EPolicy::kInOrder}) {
    const SOutcome one = RunBusy({.seed = 5, .policy = policy});
    const SOutcome other = RunBusy({.seed = 5, .policy = policy});
    EXPECT_EQ(one.hash, other.hash);
    EXPECT_EQ(one.steps, other.steps);
    EXPECT_EQ(one.nowUs, other.nowUs);
    EXPECT_NE(one.hash, RunBusy({.seed = 6, .policy = policy}).hash);
  }
}

TEST(World, DoesTheSameOnFibersAndOnThreads) {
  if (kDefaultCarrier != ECarrier::kFibers)
    GTEST_SKIP() << "the sanitizers lose track of fibers";
  for (uint64_t seed = 0; seed < 5; ++seed) {
    EXPECT_EQ(RunBusy({.seed = seed, .carrier = ECarrier::kFibers}).hash,
              RunBusy({.seed = seed, .carrier = ECarrier::kThreads}).hash);
  }
}

TEST(World, WhatATestNotesIsPartOfTheHash) {
  const auto hash = [](const char* noted) {
    CWorld world({});
    return RunToEnd(world, [&] { world.Note(noted, 3); }).hash;
  };
  EXPECT_EQ(hash("abc"), hash("abc"));
  EXPECT_NE(hash("abc"), hash("abd"));
}

TEST(World, ActsComeAtTheirTimesBetweenTasks) {
  CWorld world({.stepUs = 0});
  std::vector<int64_t> times;
  world.At(2000, [&] { times.push_back(world.NowUs()); });
  const uint64_t cancelled = world.At(1000, [&] { times.push_back(-1); });
  EXPECT_TRUE(world.Cancel(cancelled));
  RunToEnd(world, [&] {
    world.After(5000, [&] { times.push_back(world.NowUs()); });
    SleepMs(10);
    times.push_back(world.NowUs());
  });
  EXPECT_EQ(times, (std::vector<int64_t>{2000, 5000, 10'000}));
}

TEST(World, AnInvariantThatFailsEndsTheRunAtOnce) {
  CWorld world({});
  bool goesOn = false;
  world.After(3000, [&] { world.Fail("a count is wrong"); });
  const SOutcome outcome = world.Run([&] {
    SleepMs(5);
    goesOn = true;
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("a count is wrong (at 3000 us)"), std::string::npos) << outcome.report;
  EXPECT_FALSE(goesOn);
}

TEST(World, ABoundThatIsPassedFailsAndOneThatIsKeptDoesNot) {
  CWorld kept({});
  RunToEnd(kept, [&] {
    const CBound bound(kept, "a sleep", 10 * kUsPerMs);
    SleepMs(9);
  });
  CWorld passed({});
  const SOutcome outcome = passed.Run([&] {
    const CBound bound(passed, "a sleep", 10 * kUsPerMs);
    SleepMs(11);
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("a sleep takes longer than it may"), std::string::npos) << outcome.report;
}

TEST(World, ARunThatTakesTooManyStepsOrTooLongEnds) {
  CWorld busy({.mostSteps = 1000});
  EXPECT_EQ(busy.Run([] {
                  while (true) {
                    TickMs();
                  }
                })
                .verdict,
            EVerdict::kTooLong);
  CWorld slow({.mostUs = kUsPerSecond});
  EXPECT_EQ(slow.Run([] { SleepMs(2000); }).verdict, EVerdict::kTooLong);
}

TEST(World, ATaskThatIsLeftWhenTheFirstHasEndedIsNamed) {
  CWorld world({.mostAfterMainUs = kUsPerSecond});

  const SOutcome outcome = world.Run([&] {
    world.Start("left", [&] { SleepMs(2000); });
    world.Start("in time", [&] { SleepMs(500); });
  });
  EXPECT_EQ(outcome.verdict, EVerdict::kLeftOver);
  EXPECT_NE(outcome.report.find("'left'"), std::string::npos) << outcome.report;
  EXPECT_EQ(outcome.report.find("'in time'"), std::string::npos) << outcome.report;
}

TEST(World, TheNthThreadOrSocketIsNotToBeHad) {
  CWorld world({});
  RunToEnd(world, [&] {
    world.Scarcity() = {.failingThreadStart = 2, .failingSocketOpen = 1};
    CThread first;
    CThread second;
    EXPECT_TRUE(first.Start("first", [] {}));
    EXPECT_FALSE(second.Start("second", [] {}));
    EXPECT_TRUE(second.Start("second", [] {}));
    CSocket socket;
    EXPECT_FALSE(socket.OpenUdp());
    EXPECT_TRUE(socket.OpenUdp());
  });
}

TEST(World, AnExceptionThatLeavesATaskIsTold) {
  CWorld world({});
  const SOutcome outcome = world.Run([] { throw std::runtime_error("lost"); });
  EXPECT_EQ(outcome.verdict, EVerdict::kFailed);
  EXPECT_NE(outcome.report.find("task 'main' threw: lost"), std::string::npos) << outcome.report;
}

}  // namespace
}  // namespace zelk::sim
