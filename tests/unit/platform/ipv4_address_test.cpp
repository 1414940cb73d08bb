// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ipv4_address.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "platform/socket.h"
#include "support/addresses.h"

namespace zelk {
namespace {

TEST(Ipv4Address, StandsInMemoryAsInAPacket) {
  const SIpv4Address address = Address("1.2.3.4");
  std::array<uint8_t, 4> inMemory{};
  std::memcpy(inMemory.data(), &address, inMemory.size());
  EXPECT_EQ(inMemory, (std::array<uint8_t, 4>{1, 2, 3, 4}));
}

TEST(Ipv4Address, IsWhatTheSystemTakesAndGives) {
  CSocket socket;
  ASSERT_TRUE(socket.OpenUdp());
  ASSERT_TRUE(socket.Bind({Address("127.0.0.1"), 0}));
  ASSERT_EQ(socket.SendTo("x", 1, {Address("127.0.0.1"), socket.LocalPort()}), 1);
  char byte = 0;
  SIpv4Endpoint from;
  ASSERT_EQ(socket.ReceiveFrom(&byte, 1, from), 1);
  EXPECT_EQ(from.address, Address("127.0.0.1"));
  EXPECT_EQ(from.port, socket.LocalPort());
}

TEST(Ipv4Address, AnyIsAllZeros) {
  EXPECT_EQ(kAnyAddress, Address("0.0.0.0"));
  EXPECT_NE(kAnyAddress, Address("0.0.0.1"));
}

}  // namespace
}  // namespace zelk
