// SPDX-License-Identifier: GPL-2.0-only
#include "playback/dword_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

TEST(DwordQueue, HasNoRoomBeforeItIsCreated) {
  CDwordQueue queue;
  uint32_t value = 0;
  EXPECT_FALSE(queue.Push(1));
  EXPECT_FALSE(queue.Pop(value));
  queue.Clear();
}

TEST(DwordQueue, HoldsAsManyValuesAsItsCapacityInOrder) {
  CDwordQueue queue;
  ASSERT_TRUE(queue.Create(3));
  uint32_t value = 0;
  for (uint32_t round = 0; round < 5; ++round) {
    for (uint32_t i = 0; i < 3; ++i) {
      EXPECT_TRUE(queue.Push(round * 10 + i));
    }
    EXPECT_FALSE(queue.Push(99));
    for (uint32_t i = 0; i < 3; ++i) {
      ASSERT_TRUE(queue.Pop(value));
      EXPECT_EQ(value, round * 10 + i);
    }
    EXPECT_FALSE(queue.Pop(value));
    EXPECT_TRUE(queue.Push(7));  // shifts the next round by one slot
    EXPECT_TRUE(queue.Pop(value));
  }
}

TEST(DwordQueue, ClearEmptiesIt) {
  CDwordQueue queue;
  ASSERT_TRUE(queue.Create(2));
  uint32_t value = 0;
  queue.Push(1);
  queue.Push(2);
  queue.Clear();
  EXPECT_FALSE(queue.Pop(value));
  EXPECT_TRUE(queue.Push(3));
  ASSERT_TRUE(queue.Pop(value));
  EXPECT_EQ(value, 3U);
}

TEST(DwordQueue, IsEmptyWhenItIsCreatedAgain) {
  CDwordQueue queue;
  ASSERT_TRUE(queue.Create(2));
  queue.Push(1);
  ASSERT_TRUE(queue.Create(2));
  uint32_t value = 0;
  EXPECT_FALSE(queue.Pop(value));
}

TEST(DwordQueue, HasNoRoomWhenCreatedWithoutMemoryOrCapacity) {
  CDwordQueue queue;
  support::FailAllocation(1);
  EXPECT_FALSE(queue.Create(3));
  support::FailAllocation(0);
  EXPECT_FALSE(queue.Push(1));
  EXPECT_TRUE(queue.Create(0));
  EXPECT_FALSE(queue.Push(1));
}

TEST(DwordQueue, PassesValuesBetweenThreads) {
  CDwordQueue queue;
  ASSERT_TRUE(queue.Create(4));
  std::thread producer([&queue] {
    for (uint32_t i = 1; i <= 1000; ++i) {
      while (!queue.Push(i)) {
        std::this_thread::yield();
      }
    }
  });
  for (uint32_t i = 1; i <= 1000; ++i) {
    uint32_t value = 0;
    while (!queue.Pop(value)) {
      std::this_thread::yield();
    }
    EXPECT_EQ(value, i);
  }
  producer.join();
}

}  // namespace
}  // namespace zelk
