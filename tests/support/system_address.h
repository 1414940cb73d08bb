// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "native_sockets.h"

namespace zelk {

// An address as the system's own socket calls take it.
inline sockaddr_in SystemAddress(const std::string& address, uint16_t port) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &system.sin_addr);
  return system;
}

}  // namespace zelk
