// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

// An IPv4 address as packets and the system's calls hold it: the first byte in memory is the first number of its text,
// which nothing on the way from discovery to a socket needs.
struct SIpv4Address {
  uint32_t networkOrder = 0;

  friend constexpr bool operator==(SIpv4Address, SIpv4Address) = default;
};

constexpr SIpv4Address kAnyAddress{};

// An address and a port, the port in the machine's order.
struct SIpv4Endpoint {
  SIpv4Address address;
  uint16_t port = 0;
};

}  // namespace zelk
