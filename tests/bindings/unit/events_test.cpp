// SPDX-License-Identifier: GPL-2.0-only
#include "zelk/cpp/Events.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "support/eventually.h"

namespace {

using zelkapi::Event;
using zelkapi::Events;
using namespace std::chrono_literals;

std::vector<uint64_t> Sequences(Events& events) {
  std::vector<uint64_t> all;
  while (const std::optional<Event> event = events.next(0ms)) {
    all.push_back(event->sequence);
  }
  return all;
}

TEST(Events, ComeOutAsTheyCame) {
  Events events;
  events.begin();
  const int64_t before =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
          .count();
  events.put(3, ZELK_EVENT_DTMF, '5');
  events.put(4, ZELK_EVENT_DISCONNECTED, -1);
  const std::optional<Event> first = events.next();
  const std::optional<Event> second = events.next();
  EXPECT_EQ(first->sequence, 1U);
  EXPECT_GE(first->timeUs, before);
  EXPECT_EQ(first->channel, 3);
  EXPECT_EQ(first->code, static_cast<uint32_t>(ZELK_EVENT_DTMF));
  EXPECT_EQ(first->param, '5');
  EXPECT_EQ(second->sequence, 2U);
  EXPECT_GE(second->timeUs, first->timeUs);
  EXPECT_EQ(second->param, -1);
  EXPECT_FALSE(events.next(0ms));
}

TEST(Events, ALossIsToldInItsPlace) {
  Events events(4);
  events.begin();
  for (int i = 1; i <= 6; ++i) {
    events.put(i, 0x101, 0);
  }
  EXPECT_EQ(events.next()->channel, 1);
  events.put(7, 0x101, 0);  // the room that came free
  events.put(8, 0x101, 0);  // lost again
  for (const int channel : {2, 3, 4}) {
    EXPECT_EQ(events.next()->channel, channel);
  }
  const std::optional<Event> first = events.next();
  EXPECT_EQ(first->code, static_cast<uint32_t>(zelkapi::kOverflow));
  EXPECT_EQ(first->channel, -1);
  EXPECT_EQ(first->param, 2);
  EXPECT_EQ(first->sequence, 5U);
  EXPECT_EQ(events.next()->channel, 7);
  const std::optional<Event> second = events.next();
  EXPECT_EQ(second->code, static_cast<uint32_t>(zelkapi::kOverflow));
  EXPECT_EQ(second->param, 1);
  EXPECT_EQ(second->sequence, 8U);
  EXPECT_FALSE(events.next(0ms)) << "a loss is told once";
  EXPECT_EQ(events.lost(), 3U);
  events.put(9, 0x101, 0);
  EXPECT_EQ(events.next()->channel, 9);
}

TEST(Events, ALossHasTheTimeOfTheFirst) {
  Events events(1);
  events.begin();
  events.put(1, 0x101, 0);
  events.put(2, 0x101, 0);  // the first that is lost
  const int64_t afterFirst = Events::stamped(0, 0, 0).timeUs;
  while (Events::stamped(0, 0, 0).timeUs == afterFirst) {
  }
  events.put(3, 0x101, 0);
  std::array<Event, 2> both;
  ASSERT_EQ(events.take(both.data(), both.size()), 2U);
  EXPECT_GE(both[1].timeUs, both[0].timeUs);
  EXPECT_LE(both[1].timeUs, afterFirst);
}

TEST(Events, TheRoomIsThatOfTheQueueAndNoMore) {
  Events events;
  events.begin();
  for (size_t i = 0; i < Events::kRoom; ++i) {
    events.put(0, 0x101, 0);
  }
  EXPECT_EQ(events.lost(), 0U);
  events.put(0, 0x101, 0);
  EXPECT_EQ(events.lost(), 1U);
  EXPECT_EQ(Sequences(events).size(), Events::kRoom + 1);
}

// Each thread is held up while too many of its own are unread, so that nothing has to be lost; who reads is never
// ahead.
TEST(Events, HalfAMillionOfEightThreadsKeepTheirOrder) {
  constexpr size_t kThreads = 8;
  constexpr int32_t kEach = 62500;
  constexpr int32_t kUnread = 4096;
  Events events;
  events.begin();
  std::array<std::atomic<int32_t>, kThreads> read{};
  std::vector<std::thread> writers;
  for (size_t thread = 0; thread < kThreads; ++thread) {
    writers.emplace_back([&events, &seen = read[thread], thread] {
      for (int32_t i = 0; i < kEach; ++i) {
        while (i - seen.load() > kUnread) {
          std::this_thread::yield();
        }
        events.put(static_cast<int32_t>(thread), 0x101, i);
      }
    });
  }
  std::vector<Event> batch(1000);
  uint64_t sequence = 0;
  while (sequence < kThreads * kEach) {
    const size_t count = events.take(batch.data(), batch.size(), 60s);
    ASSERT_GT(count, 0U);
    for (size_t i = 0; i < count; ++i) {
      ASSERT_EQ(batch[i].sequence, ++sequence);
      ASSERT_EQ(batch[i].param, read[static_cast<size_t>(batch[i].channel)]++);
    }
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  EXPECT_EQ(events.lost(), 0U);
}

TEST(Events, WhatIsNotReadIsCounted) {
  constexpr int kThreads = 8;
  constexpr int kEach = 20000;
  Events events(64);
  events.begin();
  std::atomic<int> ended{0};
  std::vector<std::thread> writers;
  for (int thread = 0; thread < kThreads; ++thread) {
    writers.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) {
        events.put(0, 0x101, i);
      }
      ++ended;
    });
  }
  uint64_t sequence = 0;
  uint64_t lost = 0;
  for (bool last = false; !last;) {
    last = ended == kThreads;
    while (const std::optional<Event> event = events.next(0ms)) {
      ASSERT_EQ(event->sequence, sequence + 1);
      const bool isLoss = event->code == zelkapi::kOverflow;
      lost += isLoss ? static_cast<uint64_t>(event->param) : 0;
      sequence += isLoss ? static_cast<uint64_t>(event->param) : 1;
    }
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  EXPECT_EQ(sequence, static_cast<uint64_t>(kThreads) * kEach);
  EXPECT_GT(lost, 0U);
  EXPECT_EQ(lost, events.lost());
}

TEST(Events, SeveralReadersGetEachEventOnce) {
  constexpr int kEvents = 50000;
  Events events;
  events.begin();
  std::vector<std::atomic<int>> seen(kEvents);
  std::vector<std::thread> readers;
  for (int reader = 0; reader < 4; ++reader) {
    readers.emplace_back([&] {
      while (const std::optional<Event> event = events.next()) {
        ++seen[static_cast<size_t>(event->param)];
      }
    });
  }
  for (int i = 0; i < kEvents; ++i) {
    events.put(0, 0x101, i);
  }
  // An event for each reader would not do: one may take them all.
  while (std::any_of(seen.begin(), seen.end(), [](const std::atomic<int>& count) { return count == 0; })) {
    std::this_thread::yield();
  }
  events.end();
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](const std::atomic<int>& count) { return count == 1; }));
}

TEST(Events, AWaitEndsWithAnEventAWakeAndTheEnd) {
  Events events;
  events.begin();
  std::atomic<int> step{0};
  std::thread waiter([&] {
    EXPECT_EQ(events.next()->channel, 5);
    step = 1;
    EXPECT_FALSE(events.next());
    EXPECT_TRUE(events.isRunning());
    step = 2;
    EXPECT_FALSE(events.next());
    EXPECT_FALSE(events.isRunning());
  });
  support::LetThreadsWait();
  events.put(5, 0x301, 0);
  while (step != 1) {
    std::this_thread::yield();
  }
  support::LetThreadsWait();
  events.wake();
  while (step != 2) {
    std::this_thread::yield();
  }
  support::LetThreadsWait();
  events.end();
  waiter.join();
}

TEST(Events, AWakeIsKeptForTheNextWaitAlone) {
  Events events;
  events.begin();
  events.put(1, 0x101, 0);
  events.wake();
  EXPECT_FALSE(events.next());
  EXPECT_EQ(events.next()->channel, 1);
}

TEST(Events, AWaitHasItsTime) {
  Events events;
  events.begin();
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(events.next(30ms));
  EXPECT_GE(std::chrono::steady_clock::now() - before, 30ms);
  EXPECT_TRUE(events.isRunning());
}

TEST(Events, AreTakenBetweenBeginAndEndAlone) {
  Events events;
  events.put(1, 0x101, 0);
  EXPECT_FALSE(events.next());
  events.begin();
  events.put(2, 0x101, 0);
  events.end();
  events.put(3, 0x101, 0);
  EXPECT_FALSE(events.next());
  events.begin();
  events.put(4, 0x101, 0);
  EXPECT_EQ(events.next()->channel, 4);
  EXPECT_FALSE(events.next(0ms));
}

}  // namespace
