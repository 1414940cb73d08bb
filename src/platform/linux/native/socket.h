// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstddef>

namespace zelk {

// What the system's socket calls take here.
using NativeSocket = int;
using NativeSize = socklen_t;
using NativeLength = size_t;
constexpr NativeSocket kNoSocket = -1;
constexpr int kSendFlags = MSG_NOSIGNAL | MSG_DONTWAIT;
constexpr int kReceiveFlags = MSG_DONTWAIT;

}  // namespace zelk
