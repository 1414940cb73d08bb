// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

namespace zelk {

// What the system's socket calls take here.
using NativeSocket = SOCKET;
using NativeSize = int;
using NativeLength = int;
constexpr NativeSocket kNoSocket = INVALID_SOCKET;
constexpr int kSendFlags = 0;
constexpr int kReceiveFlags = 0;

}  // namespace zelk
