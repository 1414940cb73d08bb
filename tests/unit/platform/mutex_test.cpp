// SPDX-License-Identifier: GPL-2.0-only
#include "platform/mutex.h"

#include <gtest/gtest.h>

#include <vector>

#include "native_worker.h"

namespace zelk {
namespace {

// Plain counters: without mutual exclusion the sums are wrong and ThreadSanitizer reports the race.
template <class Mutex>
int CountUnder(Mutex& mutex) {
  int count = 0;
  std::vector<CWorker> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 1000; ++turn) {
        const CScopedLock hold(mutex);
        ++count;
      }
    });
  }
  for (CWorker& thread : threads) {
    thread.join();
  }
  return count;
}

TEST(Mutex, LetsOneThreadInAtATime) {
  CMutex mutex;
  EXPECT_EQ(CountUnder(mutex), 4000);
}

TEST(RecursiveMutex, LetsOneThreadInAtATime) {
  CRecursiveMutex mutex;
  EXPECT_EQ(CountUnder(mutex), 4000);
}

void LockTwice(CRecursiveMutex& mutex) ZELK_NO_THREAD_SAFETY_ANALYSIS {
  mutex.Lock();
  mutex.Lock();
  mutex.Unlock();
  mutex.Unlock();
}

TEST(RecursiveMutex, ItsHolderMayTakeItAgainAndThenOthersGetIt) {
  CRecursiveMutex mutex;
  LockTwice(mutex);
  CWorker([&mutex] { const CScopedLock hold(mutex); }).join();
}

}  // namespace
}  // namespace zelk
