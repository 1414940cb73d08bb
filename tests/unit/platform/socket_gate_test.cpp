// SPDX-License-Identifier: GPL-2.0-only
#include "platform/socket_gate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace zelk {
namespace {

TEST(SocketGate, IsClosedUntilItIsPublished) {
  CSocketGate gate;
  EXPECT_FALSE(gate.IsOpen());
  EXPECT_FALSE(gate.Enter());
  EXPECT_FALSE(gate.Leave());
  EXPECT_FALSE(gate.BeginClose());
  gate.WaitIdle();
  gate.Publish();
  EXPECT_TRUE(gate.IsOpen());
  EXPECT_TRUE(gate.Enter());
  EXPECT_FALSE(gate.Leave());
}

TEST(SocketGate, TheCloserReleasesWhenItIsAlone) {
  CSocketGate gate;
  gate.Publish();
  ASSERT_TRUE(gate.BeginClose());
  EXPECT_FALSE(gate.IsOpen());
  EXPECT_TRUE(gate.Leave());
  gate.Released();
  gate.WaitIdle();
}

TEST(SocketGate, TheLastOneInsideReleases) {
  CSocketGate gate;
  gate.Publish();
  ASSERT_TRUE(gate.Enter());
  ASSERT_TRUE(gate.Enter());
  ASSERT_TRUE(gate.BeginClose());
  EXPECT_FALSE(gate.BeginClose());
  EXPECT_FALSE(gate.Leave());
  EXPECT_FALSE(gate.Leave());
  EXPECT_TRUE(gate.Leave());
  gate.Released();
}

TEST(SocketGate, ALateComerMayBeTheOneThatReleases) {
  CSocketGate gate;
  gate.Publish();
  ASSERT_TRUE(gate.BeginClose());
  EXPECT_FALSE(gate.Enter());
  EXPECT_FALSE(gate.Leave());  // the closer
  EXPECT_TRUE(gate.Leave());   // the late comer
  gate.Released();
  gate.Publish();
  EXPECT_TRUE(gate.IsOpen());
}

// Readers, a closer that opens again, and a plain value that only those inside may see.
TEST(SocketGate, NobodyInsideEverSeesTheReleasedResource) {
  CSocketGate gate;
  int resource = 1;
  std::atomic<bool> stop{false};
  std::atomic<int> violations{0};
  const auto leave = [&] {
    if (gate.Leave()) {
      resource = 0;
      gate.Released();
    }
  };
  gate.Publish();
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        if (gate.Enter() && resource != 1) {
          ++violations;
        }
        leave();
      }
    });
  }
  for (int turn = 0; turn < 2000; ++turn) {
    ASSERT_TRUE(gate.BeginClose());
    leave();
    gate.WaitIdle();
    resource = 1;
    gate.Publish();
  }
  stop = true;
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(violations, 0);
}

}  // namespace
}  // namespace zelk
