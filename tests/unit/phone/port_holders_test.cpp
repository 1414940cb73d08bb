// SPDX-License-Identifier: GPL-2.0-only
#include "common/port_holders.h"

#include <gtest/gtest.h>

#include "native_sockets.h"

namespace tool {
namespace {

constexpr uint16_t kPort = 45854;

class CBoundSocket {
 public:
  explicit CBoundSocket(const char* address, uint16_t port = kPort)
      : descriptor(static_cast<int>(socket(AF_INET, SOCK_DGRAM, 0))) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    inet_pton(AF_INET, address, &place.sin_addr);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
  }
  ~CBoundSocket() { CloseSocket(descriptor); }
  CBoundSocket(const CBoundSocket&) = delete;
  CBoundSocket& operator=(const CBoundSocket&) = delete;

 private:
  const int descriptor;
};

TEST(PortHolders, AProcessOnTheWildcardAddressIsToldOnce) {
  const CBoundSocket other("0.0.0.0", kPort + 1);
  EXPECT_TRUE(UdpWildcardHolders(kPort).empty());
  {
    const CBoundSocket held("0.0.0.0");
    EXPECT_EQ(UdpWildcardHolders(kPort).size(), 1U);
  }
  EXPECT_TRUE(UdpWildcardHolders(kPort).empty());
}

TEST(PortHolders, AProcessIsToldWithItsNumberAndName) {
  const CBoundSocket held("0.0.0.0");
  const std::vector<SPortHolder> holders = UdpWildcardHolders(kPort);
  ASSERT_EQ(holders.size(), 1U);
  EXPECT_EQ(holders[0].pid, OwnProcessId());
  EXPECT_EQ(holders[0].name.rfind("unit_phone", 0), 0U) << holders[0].name;
}

TEST(PortHolders, ASocketOnAnAddressOfItsOwnDoesNotCount) {
  const CBoundSocket held("127.0.0.1");
  EXPECT_TRUE(UdpWildcardHolders(kPort).empty());
}

}  // namespace
}  // namespace tool
