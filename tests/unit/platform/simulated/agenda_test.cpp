// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/agenda.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/simulated/random.h"

namespace zelk::sim {
namespace {

TEST(Agenda, GivesActsByTimeAndThenByEntry) {
  CAgenda agenda;
  std::string order;
  agenda.Add(30, [&] { order += 'd'; });
  agenda.Add(10, [&] { order += 'a'; });
  agenda.Add(20, [&] { order += 'b'; });
  agenda.Add(20, [&] { order += 'c'; });
  EXPECT_FALSE(agenda.HasDue(9));
  EXPECT_TRUE(agenda.HasDue(10));
  while (!agenda.IsEmpty()) {
    agenda.TakeNext()();
  }
  EXPECT_EQ(order, "abcd");
}

TEST(Agenda, WhatWasCancelledDoesNotCome) {
  CAgenda agenda;
  int acts = 0;
  const uint64_t first = agenda.Add(10, [&] { ++acts; });
  const uint64_t second = agenda.Add(20, [&] { ++acts; });
  EXPECT_TRUE(agenda.Cancel(first));
  EXPECT_FALSE(agenda.Cancel(first));
  EXPECT_EQ(agenda.NextDueUs(), 20);
  agenda.TakeNext()();
  EXPECT_FALSE(agenda.Cancel(second));
  EXPECT_TRUE(agenda.IsEmpty());
  EXPECT_FALSE(agenda.HasDue(1000));
  EXPECT_EQ(acts, 1);
}

// Against a list that is searched.
TEST(Agenda, KeepsTheOrderOverManyEntriesAndCancellations) {
  CAgenda agenda;
  CRandom random(1);
  std::vector<std::pair<int64_t, uint64_t>> waiting;
  int64_t lastUs = 0;
  for (int i = 0; i < 20'000; ++i) {
    const int64_t dueUs = lastUs + random.Between(0, 50);
    waiting.emplace_back(dueUs, agenda.Add(dueUs, [] {}));
    if (random.Chance(700'000)) {
      const size_t taken = random.Below(waiting.size());
      EXPECT_TRUE(agenda.Cancel(waiting[taken].second));
      waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(taken));
    }
    if (!waiting.empty() && random.Chance(200'000)) {
      const auto least = std::min_element(waiting.begin(), waiting.end(),
                                          [](const auto& one, const auto& other) { return one.first < other.first; });
      ASSERT_EQ(agenda.NextDueUs(), least->first);
      lastUs = least->first;
      agenda.TakeNext();
      waiting.erase(least);
    }
  }
  EXPECT_EQ(agenda.IsEmpty(), waiting.empty());
}

}  // namespace
}  // namespace zelk::sim
