// SPDX-License-Identifier: GPL-2.0-only
#include "platform/event.h"

#include <gtest/gtest.h>

#include <vector>

#include "native_worker.h"

namespace zelk {
namespace {

constexpr uint32_t kGenerousMs = 10'000;

TEST(Event, BeginsUnset) {
  CEvent event;
  EXPECT_FALSE(event.WaitFor(0));
}

TEST(Event, AWaitThatRunsOutSaysSo) {
  CEvent event;
  EXPECT_FALSE(event.WaitFor(5));
}

TEST(Event, StaysSetUntilItIsReset) {
  CEvent event;
  event.Set();
  EXPECT_TRUE(event.WaitFor(0));
  EXPECT_TRUE(event.WaitFor(0));
  event.Wait();
  event.Reset();
  EXPECT_FALSE(event.WaitFor(0));
}

TEST(Event, CanBeSetAgainAfterAReset) {
  CEvent event;
  event.Set();
  event.Set();
  event.Reset();
  event.Set();
  EXPECT_TRUE(event.WaitFor(0));
}

TEST(Event, ReleasesEveryWaitingThread) {
  CEvent event;
  std::vector<CWorker> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&event] { event.Wait(); });
  }
  event.Set();
  for (CWorker& thread : threads) {
    thread.join();
  }
}

// Plain data on both ways: ThreadSanitizer checks that the event orders it.
TEST(Event, WhatWasWrittenBeforeSetIsSeenBehindTheWait) {
  CEvent request;
  CEvent answer;
  int value = 0;
  CWorker worker([&] {
    for (int i = 1; i <= 200; ++i) {
      request.Wait();
      request.Reset();
      ++value;
      answer.Set();
    }
  });
  for (int i = 1; i <= 200; ++i) {
    request.Set();
    ASSERT_TRUE(answer.WaitFor(kGenerousMs));
    answer.Reset();
    ASSERT_EQ(value, i);
  }
  worker.join();
}

}  // namespace
}  // namespace zelk
