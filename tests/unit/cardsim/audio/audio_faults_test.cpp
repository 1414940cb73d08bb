// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_faults.h"

#include <gtest/gtest.h>

#include <set>

namespace cardsim {
namespace {

using namespace std::chrono_literals;
using Order = std::vector<std::uint32_t>;

class AudioFaults : public testing::Test {
 protected:
  // Sends packets 1 to `count`, 5 ms apart, and returns the numbers in the order in which they arrive.
  Order Send(std::uint32_t count) {
    Order order;
    for (std::uint32_t number = 1; number <= count; ++number) {
      network.Push({Bytes{static_cast<std::uint8_t>(number)}, number, 0, number}, now);
      Take(order);
      now += 5ms;
    }
    now += 10s;
    Take(order);
    return order;
  }
  void Take(Order& order) {
    while (const auto packet = network.Pop(now)) {
      EXPECT_EQ(packet->bytes, Bytes{static_cast<std::uint8_t>(packet->sequence)});
      order.push_back(packet->sequence);
    }
  }

  CAudioFaults network;
  CAudioFaults::Time now{1000s};
};

Order UpTo(std::uint32_t count) {
  Order order(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    order[i] = i + 1;
  }
  return order;
}

TEST_F(AudioFaults, WithoutFaultsPacketsArriveAtOnceAndInOrder) {
  EXPECT_TRUE(network.IsIdle(now));
  network.Push({{}, 1, 0, 0}, now);
  EXPECT_FALSE(network.IsIdle(now));
  EXPECT_EQ(network.NextDue(), now);
  EXPECT_EQ(network.Pop(now)->sequence, 1U);
  EXPECT_EQ(network.NextDue(), std::nullopt);
  EXPECT_TRUE(network.IsIdle(now));
}

TEST_F(AudioFaults, TheShareAskedForIsLostAndCounted) {
  network.Set({.loss = 10});
  const Order order = Send(10000);
  EXPECT_EQ(order.size() + network.Counts().lost, 10000U);
  EXPECT_NEAR(static_cast<double>(network.Counts().lost), 1000, 100);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(AudioFaults, TheShareAskedForArrivesTwiceInARow) {
  network.Set({.duplicates = 20});
  const Order order = Send(10000);
  EXPECT_EQ(order.size(), 10000 + network.Counts().duplicated);
  EXPECT_NEAR(static_cast<double>(network.Counts().duplicated), 2000, 150);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(std::set<std::uint32_t>(order.begin(), order.end()).size(), 10000U);
}

TEST_F(AudioFaults, AReorderedPacketGoesBehindItsSuccessor) {
  network.Set({.reordered = 100});
  EXPECT_EQ(Send(6), (Order{2, 1, 4, 3, 6, 5}));
  EXPECT_EQ(network.Counts().reordered, 3U);
}

TEST_F(AudioFaults, DelayMovesEveryPacketByTheSameTime) {
  network.Set({.delay = 50ms});
  network.Push({{}, 1, 0, 0}, now);
  EXPECT_EQ(network.NextDue(), now + 50ms);
  EXPECT_EQ(network.Pop(now + 49ms), std::nullopt);
  EXPECT_TRUE(network.Pop(now + 50ms).has_value());
  EXPECT_EQ(Send(100), UpTo(100));
}

TEST_F(AudioFaults, JitterStaysWithinItsLimitAndLetsPacketsOvertake) {
  network.Set({.delay = 20ms, .jitter = 30ms});
  for (std::uint32_t number = 1; number <= 500; ++number) {
    network.Push({{}, number, 0, 0}, now);
    EXPECT_GE(*network.NextDue(), now + 20ms);
    EXPECT_LE(*network.NextDue(), now + 50ms);
    EXPECT_TRUE(network.Pop(now + 50ms).has_value());
  }
  const Order order = Send(500);
  EXPECT_EQ(order.size(), 500U);
  EXPECT_FALSE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(AudioFaults, APauseHoldsAllBackAndLetsThemGoTogether) {
  network.PauseUntil(now + 300ms);
  EXPECT_FALSE(network.IsIdle(now));
  const auto end = now + 300ms;
  for (std::uint32_t number = 1; number <= 10; ++number) {
    network.Push({{}, number, 0, 0}, now);
    EXPECT_EQ(network.Pop(now), std::nullopt);
    now += 5ms;
  }
  EXPECT_EQ(network.NextDue(), end);
  for (std::uint32_t number = 1; number <= 10; ++number) {
    EXPECT_EQ(network.Pop(end)->sequence, number);
  }
  EXPECT_TRUE(network.IsIdle(end));
}

TEST_F(AudioFaults, TheSameSeedGivesTheSameNetwork) {
  const SAudioFaults faults{.loss = 5, .duplicates = 5, .reordered = 5, .jitter = 12ms, .seed = 7};
  network.Set(faults);
  const Order first = Send(1000);
  network.Set(faults);
  EXPECT_EQ(Send(1000), first);
  network.Set({.loss = 5, .duplicates = 5, .reordered = 5, .jitter = 12ms, .seed = 8});
  EXPECT_NE(Send(1000), first);
}

TEST_F(AudioFaults, ClearForgetsWhatIsUnderWay) {
  network.Set({.reordered = 100, .delay = 50ms});
  network.Push({{}, 1, 0, 0}, now);
  network.Push({{}, 2, 0, 0}, now);
  network.Push({{}, 3, 0, 0}, now);
  network.Clear();
  EXPECT_EQ(network.NextDue(), std::nullopt);
  EXPECT_EQ(Send(2), (Order{2, 1}));
}

}  // namespace
}  // namespace cardsim
