// SPDX-License-Identifier: GPL-2.0-only
#include "card/trunk_lock.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "platform/clock.h"
#include "platform/event.h"
#include "support/eventually.h"

namespace zelk {
namespace {

// Another thread has the lock until this goes.
class CHolder {
 public:
  explicit CHolder(CRecursiveMutex& lock)
      : holder([this, &lock] {
          const CScopedLock<CRecursiveMutex> held(lock);
          isHeld.Set();
          mayGo.Wait();
        }) {
    isHeld.Wait();
  }
  ~CHolder() {
    mayGo.Set();
    holder.join();
  }
  CHolder(const CHolder&) = delete;
  CHolder& operator=(const CHolder&) = delete;

 private:
  CEvent isHeld;
  CEvent mayGo;
  std::thread holder;
};

bool IsFree(CRecursiveMutex& lock) {
  bool isFree = false;
  std::thread other([&] {
    const CStopFlag caller;
    const CTrunkLock held(lock, {0, caller});
    isFree = held.IsHeld();
  });
  other.join();
  return isFree;
}

TEST(TrunkLock, AFreeLockIsHeldForTheLengthOfTheBlock) {
  CRecursiveMutex lock;
  const CStopFlag caller;
  {
    const CTrunkLock held(lock, {0, caller});
    EXPECT_TRUE(held.IsHeld());
    EXPECT_FALSE(IsFree(lock));
    const CTrunkLock again(lock, {0, caller});
    EXPECT_TRUE(again.IsHeld()) << "the lock is re-entrant";
  }
  EXPECT_TRUE(IsFree(lock));
}

TEST(TrunkLock, AFreeLockIsHadByACallerThatWasGivenUpToo) {
  CRecursiveMutex lock;
  CStopFlag caller;
  caller.Set();
  const CTrunkLock held(lock, {0, caller});
  EXPECT_TRUE(held.IsHeld());
}

TEST(TrunkLock, OneThatStaysTakenIsGivenUpAndLeftAlone) {
  CRecursiveMutex lock;
  const CStopFlag caller;
  {
    const CHolder holder(lock);
    const uint32_t start = TickMs();
    const CTrunkLock held(lock, {30, caller});
    EXPECT_FALSE(held.IsHeld());
    EXPECT_GE(TickMs() - start, 30U);
  }
  EXPECT_TRUE(IsFree(lock));
}

TEST(TrunkLock, PatienceIsSharedByAllTheLocksThatItIsFor) {
  CRecursiveMutex first;
  CRecursiveMutex second;
  const CStopFlag caller;
  const CHolder ofTheFirst(first);
  const CHolder ofTheSecond(second);
  const SLockPatience patience(2000, caller);
  const uint32_t start = TickMs();
  EXPECT_FALSE(CTrunkLock(first, patience).IsHeld());
  EXPECT_FALSE(CTrunkLock(second, patience).IsHeld());
  EXPECT_LT(TickMs() - start, 3500U);
}

TEST(TrunkLock, AWaitWithoutALimitEndsWithTheLockOrTheCaller) {
  CRecursiveMutex lock;
  CStopFlag caller;
  auto holder = std::make_unique<CHolder>(lock);
  std::thread releaser([&] {
    support::LetPass(std::chrono::milliseconds(20));
    holder.reset();
  });
  EXPECT_TRUE(CTrunkLock(lock, {kNoLimitMs, caller}).IsHeld());
  releaser.join();
  const CHolder another(lock);
  std::thread stopper([&] { caller.Set(); });
  EXPECT_FALSE(CTrunkLock(lock, {kNoLimitMs, caller}).IsHeld());
  stopper.join();
}

}  // namespace
}  // namespace zelk
