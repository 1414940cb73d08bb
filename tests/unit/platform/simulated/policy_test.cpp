// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/policy.h"

#include <gtest/gtest.h>

#include <atomic>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/mutex.h"
#include "platform/thread.h"

namespace zelk::sim {
namespace {

// Two tasks that each read a number and write it back one higher, each under a lock, but not under the same hold.
int CountOfTwo(const SWorldOptions& options) {
  CWorld world(options);
  CMutex lock;
  int count = 0;
  const auto add = [&] {
    lock.Lock();
    const int read = count;
    lock.Unlock();
    lock.Lock();
    count = read + 1;
    lock.Unlock();
  };
  RunToEnd(world, [&] {
    CThread one;
    CThread other;
    one.Start("one", add);
    other.Start("other", add);
  });
  return count;
}

int SeedsThatLoseAnUpdate(EPolicy policy) {
  int lost = 0;
  for (uint64_t seed = 0; seed < 200; ++seed) {
    lost += CountOfTwo({.seed = seed, .policy = policy, .changePoints = 2, .changeSpan = 30}) == 2 ? 0 : 1;
  }
  return lost;
}

TEST(Policy, ChanceFindsAnOrderThatPlainOrderDoesNot) {
  EXPECT_EQ(SeedsThatLoseAnUpdate(EPolicy::kInOrder), 0);
  EXPECT_GT(SeedsThatLoseAnUpdate(EPolicy::kRandom), 0);
  EXPECT_GT(SeedsThatLoseAnUpdate(EPolicy::kPriorities), 0);
}

// One that does nothing but look is overtaken by the one that it looks for.
TEST(Policy, NobodyKeepsTheOthersFromGoingOn) {
  for (const EPolicy policy : {EPolicy::kRandom, EPolicy::kPriorities, EPolicy::kInOrder}) {
    for (uint64_t seed = 0; seed < 20; ++seed) {
      CWorld world({.seed = seed, .policy = policy, .changePoints = 0, .mostSteps = 100'000});
      std::atomic<bool> isDone{false};
      RunToEnd(world, [&] {
        CThread other;
        other.Start("other", [&] {
          SleepMs(0);
          isDone = true;
        });
        while (!isDone) {
          TickMs();
        }
      });
    }
  }
}

// Two lines that wait for each other in turn; a fall in between turns their order round.
TEST(Policy, AFallTurnsTheOrderRound) {
  bool isSeen[2] = {false, false};
  for (uint64_t seed = 0; seed < 100; ++seed) {
    CWorld world({.seed = seed, .policy = EPolicy::kPriorities, .changePoints = 1, .changeSpan = 20});
    std::string order;
    RunToEnd(world, [&] {
      CThread one;
      CThread other;
      one.Start("one", [&] {
        TickMs();
        order += '1';
      });
      other.Start("other", [&] {
        TickMs();
        order += '2';
      });
    });
    isSeen[order == "12" ? 0 : 1] = true;
  }
  EXPECT_TRUE(isSeen[0] && isSeen[1]);
}

}  // namespace
}  // namespace zelk::sim
