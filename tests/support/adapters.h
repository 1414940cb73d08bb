// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

// A private network (scripts/netns) of a system whose adapters a test can make.
inline bool HasOwnNetwork() {
  return std::getenv("ZELK_PRIVATE_NETWORK") != nullptr && std::system("ip link show lo > /dev/null 2>&1") == 0;
}

#define ZELK_NEEDS_OWN_NETWORK()                                                         \
  if (!support::HasOwnNetwork()) {                                                       \
    GTEST_SKIP() << "needs adapters of its own: Linux, in the network of scripts/netns"; \
  }                                                                                      \
  static_assert(true, "takes the semicolon")

// Changes to the network of this test alone. Outside a private network (scripts/netns) they throw.
inline void ChangeNetwork(const std::string& command) {
  if (std::getenv("ZELK_PRIVATE_NETWORK") == nullptr) {
    throw std::runtime_error("not in a private network: run by scripts/netns");
  }
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("failed: " + command);
  }
}

// A network adapter with these addresses ("10.1.1.1/24"); the first is the one that discovery uses, cards can have the
// others. A cable that leads nowhere, or where the system has none, an adapter that swallows what is sent.
inline void MakeAdapter(const std::string& name, const std::vector<std::string>& addresses) {
  ChangeNetwork("ip link add " + name + " type veth peer name " + name + "far 2>/dev/null || ip link add " + name +
                " type dummy");
  for (const std::string& address : addresses) {
    ChangeNetwork("ip addr add " + address + " brd + dev " + name);
  }
  ChangeNetwork("ip link set " + name + " up");
}

}  // namespace support
