// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/lines.h"

#include <algorithm>
#include <vector>

#include "in_world.h"

namespace zelk::sim {
namespace {

constexpr SIpv4Address kMachine = Address(10, 1, 0, 9);
constexpr size_t kBytes = 100;

struct SArrival {
  int number;
  int64_t timeUs;
};

// Datagrams of 100 bytes, one each millisecond, over a line of this kind; in the order of their arrival.
std::vector<SArrival> Arrivals(const SLink& link, int count, uint64_t seed = 1) {
  CWorld world({.seed = seed, .stepUs = 0});
  CLines lines(world);
  lines.Set(kMachine, link, {});
  std::vector<SArrival> arrivals;
  for (int i = 0; i < count; ++i) {
    world.At(i * kUsPerMs, [&, i] {
      const CLines::SArrivals due = lines.Send(lines.ToMachine(kMachine), kBytes);
      for (size_t j = 0; j < due.count; ++j) {
        world.At(due.atUs[j], [&, i] { arrivals.push_back({i, world.NowUs()}); });
      }
    });
  }
  while (!world.Scheduler().Agenda().IsEmpty()) {
    world.Scheduler().PassTime();
  }
  return arrivals;
}

bool IsInOrder(const std::vector<SArrival>& arrivals) {
  return std::is_sorted(arrivals.begin(), arrivals.end(),
                        [](const SArrival& one, const SArrival& other) { return one.number < other.number; });
}

TEST(Lines, ADatagramTakesTheDelay) {
  const auto arrivals = Arrivals({.delayUs = 2500}, 3);
  ASSERT_EQ(arrivals.size(), 3U);
  for (const SArrival& arrival : arrivals) {
    EXPECT_EQ(arrival.timeUs, arrival.number * kUsPerMs + 2500);
  }
}

TEST(Lines, JitterKeepsTheOrder) {
  const auto arrivals = Arrivals({.delayUs = 1000, .jitterUs = 5000}, 500);
  ASSERT_EQ(arrivals.size(), 500U);
  EXPECT_TRUE(IsInOrder(arrivals));
  int64_t latest = 0;
  for (const SArrival& arrival : arrivals) {
    latest = std::max(latest, arrival.timeUs - arrival.number * kUsPerMs);
    EXPECT_GE(arrival.timeUs - arrival.number * kUsPerMs, 1000);
  }
  EXPECT_GT(latest, 4000);
  EXPECT_LE(latest, 6000);
}

TEST(Lines, LossAndDuplicationComeAsOftenAsTheyAreAskedFor) {
  const size_t lost = 10'000 - Arrivals({.lossPerMillion = 100'000}, 10'000).size();
  EXPECT_GT(lost, 800U);
  EXPECT_LT(lost, 1200U);
  const size_t doubled = Arrivals({.duplicatePerMillion = 100'000}, 10'000).size() - 10'000;
  EXPECT_GT(doubled, 800U);
  EXPECT_LT(doubled, 1200U);
  EXPECT_TRUE(Arrivals({.lossPerMillion = 1'000'000}, 10).empty());
}

TEST(Lines, ReorderingLetsLaterOnesOvertake) {
  EXPECT_TRUE(IsInOrder(Arrivals({}, 1000)));
  const auto arrivals = Arrivals({.reorderPerMillion = 100'000, .reorderUs = 10'000}, 1000);
  EXPECT_EQ(arrivals.size(), 1000U);
  EXPECT_FALSE(IsInOrder(arrivals));
}

TEST(Lines, ANarrowLineTakesItsTimeAndItsQueueOverflows) {
  // Ten milliseconds a datagram, and three may wait.
  const auto arrivals = Arrivals({.delayUs = 0, .bytesPerSecond = 10'000, .queueBytes = 3 * kBytes}, 100);
  EXPECT_LT(arrivals.size(), 20U);
  ASSERT_GT(arrivals.size(), 5U);
  for (size_t i = 1; i < arrivals.size(); ++i) {
    EXPECT_GE(arrivals[i].timeUs - arrivals[i - 1].timeUs, 10 * kUsPerMs);
  }
}

TEST(Lines, NothingComesThroughALineThatIsCut) {
  EXPECT_TRUE(Arrivals({.isCut = true}, 10).empty());
}

TEST(Lines, TheSameSeedDrawsTheSame) {
  const SLink link{.jitterUs = 5000, .lossPerMillion = 200'000};
  const auto times = [&](uint64_t seed) {
    std::vector<int64_t> all;
    for (const SArrival& arrival : Arrivals(link, 100, seed)) {
      all.push_back(arrival.timeUs);
    }
    return all;
  };
  EXPECT_EQ(times(3), times(3));
  EXPECT_NE(times(3), times(4));
}

}  // namespace
}  // namespace zelk::sim
