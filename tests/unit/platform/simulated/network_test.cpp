// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/network.h"

#include <array>
#include <memory>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/socket.h"

namespace zelk::sim {
namespace {

TEST(Network, DatagramsGoOutAndComeBack) {
  CWorld world({});
  std::unique_ptr<CDatagrams> echo = world.Network().OpenDatagrams(
      kCard, [&](std::span<const uint8_t> data, SIpv4Endpoint from) { echo->SendTo(data, from); });
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    EXPECT_EQ(socket.SendTo("abc", 3, kCard), 3);
    std::array<char, 10> bytes{};
    SIpv4Endpoint from;
    EXPECT_EQ(socket.ReceiveFrom(bytes.data(), bytes.size(), from), 3);
    EXPECT_EQ(std::string(bytes.data(), 3), "abc");
    EXPECT_EQ(from.address, kCard.address);
    EXPECT_EQ(from.port, kCard.port);
  });
}

TEST(Network, APlaceOutsideHasOneOwnerAtATime) {
  CWorld world({});
  auto first = world.Network().OpenDatagrams(kCard, [](std::span<const uint8_t>, SIpv4Endpoint) {});
  EXPECT_EQ(world.Network().OpenDatagrams(kCard, [](std::span<const uint8_t>, SIpv4Endpoint) {}), nullptr);
  first.reset();
  EXPECT_NE(world.Network().OpenDatagrams(kCard, [](std::span<const uint8_t>, SIpv4Endpoint) {}), nullptr);
  const auto listener = world.Network().Listen(kCard, [](const std::shared_ptr<CStream>&) {});
  EXPECT_EQ(world.Network().Listen(kCard, [](const std::shared_ptr<CStream>&) {}), nullptr);
  const auto any = world.Network().OpenDatagrams({kCard.address, 0}, [](std::span<const uint8_t>, SIpv4Endpoint) {});
  EXPECT_NE(any->Local().port, 0);
}

TEST(Network, EachWayHasALinkOfItsOwn) {
  CWorld world({.stepUs = 0});
  int64_t heardUs = 0;
  std::unique_ptr<CDatagrams> echo =
      world.Network().OpenDatagrams(kCard, [&](std::span<const uint8_t> data, SIpv4Endpoint from) {
        heardUs = world.NowUs();
        echo->SendTo(data, from);
      });
  world.Network().SetDefaultLink({.isCut = true});
  world.Network().SetLink(kCard.address, {.delayUs = 1000}, {.delayUs = 20'000});
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    socket.SendTo("x", 1, kCard);
    EXPECT_EQ(socket.WaitReadable(1000), EWait::kReady);
    EXPECT_EQ(heardUs, 1000);
    EXPECT_EQ(world.NowUs(), 21'000);
  });
}

TEST(Network, PortsOfOtherProgramsAreTakenUntilTheyAreFreed) {
  CWorld world({});
  world.Network().TakePort({kAnyAddress, 8150}, false);
  RunToEnd(world, [&] {
    CSocket socket;
    socket.OpenUdp();
    EXPECT_FALSE(socket.Bind({kLibraryAddress, 8150}));
    world.Network().FreePort({kAnyAddress, 8150}, false);
    EXPECT_TRUE(socket.Bind({kLibraryAddress, 8150}));
    EXPECT_EQ(world.Network().OpenSockets(), 1U);
  });
  EXPECT_EQ(world.Network().OpenSockets(), 0U);
}

}  // namespace
}  // namespace zelk::sim
