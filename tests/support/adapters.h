#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

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
