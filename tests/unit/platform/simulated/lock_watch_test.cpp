// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/lock_watch.h"

#include <gtest/gtest.h>

namespace zelk::sim {
namespace {

constexpr int kLocks[4] = {};
const void* const kA = &kLocks[0];
const void* const kB = &kLocks[1];
const void* const kC = &kLocks[2];
const void* const kThing = &kLocks[3];

// Takes one, then the other under it, and gives both back.
bool TakeBoth(CLockWatch& watch, uint32_t task, const void* one, const void* other) {
  const bool first = watch.BeforeTaking(task, one);
  watch.Taken(task, one);
  const bool second = watch.BeforeTaking(task, other);
  watch.Taken(task, other);
  watch.Released(task, other);
  watch.Released(task, one);
  return first && second;
}

TEST(LockWatch, OneOrderFitsHoweverOften) {
  CLockWatch watch;
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kB));
  EXPECT_TRUE(TakeBoth(watch, 2, kA, kB));
  EXPECT_TRUE(TakeBoth(watch, 2, kB, kC));
}

TEST(LockWatch, TheOtherOrderDoesNot) {
  CLockWatch watch;
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kB));
  EXPECT_FALSE(TakeBoth(watch, 2, kB, kA));
}

TEST(LockWatch, NorDoesARingOfThree) {
  CLockWatch watch;
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kB));
  EXPECT_TRUE(TakeBoth(watch, 2, kB, kC));
  EXPECT_FALSE(TakeBoth(watch, 3, kC, kA));
}

TEST(LockWatch, ALockThatIsOnlyTriedForHasNoOrder) {
  CLockWatch watch;
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kB));
  watch.Taken(2, kB);
  watch.Taken(2, kA);  // tried for
  watch.Released(2, kA);
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kB));
}

TEST(LockWatch, ALockThatIsGoneLeavesNoOrder) {
  CLockWatch watch;
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kB));
  watch.Gone(kA);
  EXPECT_TRUE(TakeBoth(watch, 2, kB, kA));
  EXPECT_TRUE(TakeBoth(watch, 1, kA, kC));
  watch.Gone(kC);
  EXPECT_TRUE(TakeBoth(watch, 2, kC, kB));
}

TEST(LockWatch, AThingIsGuardedByALockThatIsHeldEachTime) {
  CLockWatch watch;
  watch.Taken(1, kA);
  watch.Taken(1, kB);
  EXPECT_TRUE(watch.IsGuarded(1, kThing));
  watch.Taken(2, kB);
  EXPECT_TRUE(watch.IsGuarded(2, kThing));
  watch.Released(1, kB);
  EXPECT_FALSE(watch.IsGuarded(1, kThing)) << "the other lock is held, which is not enough";
  watch.Forget(kThing);
  EXPECT_TRUE(watch.IsGuarded(1, kThing));
}

TEST(LockWatch, AThingThatIsUsedWithoutALockIsNotGuarded) {
  CLockWatch watch;
  EXPECT_FALSE(watch.IsGuarded(3, kThing));
}

}  // namespace
}  // namespace zelk::sim
