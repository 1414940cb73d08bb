// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "platform/socket.h"
#include "support/addresses.h"

// What the tests of sockets share.
namespace zelk {

constexpr int32_t kGenerousMs = 10'000;

inline const SIpv4Address kLoopback = Address("127.0.0.1");

}  // namespace zelk
