// SPDX-License-Identifier: GPL-2.0-only
#include "platform/adapters.h"

#include "in_world.h"
#include "platform/simulated/network.h"

namespace zelk::sim {
namespace {

TEST(SimulatedAdapters, AreThoseOfTheWorld) {
  CWorld world({});
  RunToEnd(world, [&] {
    std::vector<SAdapter> adapters;
    EXPECT_EQ(ListAdapters(adapters), kAdaptersListed);
    ASSERT_EQ(adapters.size(), 2U);
    EXPECT_EQ(adapters[0].address, kLibraryAddress);
    EXPECT_EQ(adapters[1].address, kLoopback);
    world.Network().SetAdapters({{Address(192, 168, 7, 1), Address(255, 255, 0, 0)}});
    EXPECT_EQ(ListAdapters(adapters), kAdaptersListed);
    ASSERT_EQ(adapters.size(), 1U);
    EXPECT_EQ(adapters[0].mask, Address(255, 255, 0, 0));
  });
}

TEST(SimulatedAdapters, MayNotBeToldByTheSystem) {
  CWorld world({});
  world.Network().SetAdapters({}, kAdaptersNotSized);
  RunToEnd(world, [] {
    std::vector<SAdapter> adapters(3);
    EXPECT_EQ(ListAdapters(adapters), kAdaptersNotSized);
    EXPECT_TRUE(adapters.empty());
  });
}

}  // namespace
}  // namespace zelk::sim
