// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

namespace zelk {

// A socket of the simulated network: a type of its own, so that none can get into a call of the system. A number is
// never used again, so that a call on a socket that was closed is found.
enum class NativeSocket : int32_t {};
using NativeSize = socklen_t;
using NativeLength = size_t;
constexpr NativeSocket kNoSocket{-1};
constexpr int kSendFlags = 0;
constexpr int kReceiveFlags = 0;

// The system's calls of these names, in the simulated network. Those that move bytes never wait.
int bind(NativeSocket socket, const sockaddr* address, NativeSize size);
int connect(NativeSocket socket, const sockaddr* address, NativeSize size);
int getsockname(NativeSocket socket, sockaddr* address, NativeSize* size);
int getsockopt(NativeSocket socket, int level, int name, char* value, NativeSize* size);
int setsockopt(NativeSocket socket, int level, int name, const char* value, NativeSize size);
int64_t send(NativeSocket socket, const char* data, NativeLength length, int flags);
int64_t recv(NativeSocket socket, char* data, NativeLength length, int flags);

}  // namespace zelk
