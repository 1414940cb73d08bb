// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct SPortHolder {
  uint32_t pid = 0;  // 0: the system does not tell this user which process it is
  std::string name;
};

// The processes that have a UDP socket on this port of the wildcard address 0.0.0.0; sockets on an address of their own
// do not count. Each process once; none when the system cannot be asked.
std::vector<SPortHolder> UdpWildcardHolders(uint16_t port);

uint32_t OwnProcessId();

}  // namespace tool
