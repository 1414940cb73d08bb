// SPDX-License-Identifier: GPL-2.0-only
#pragma once

// The system's own sockets for tests that play the other end, with the names of POSIX on every system. Handles of
// sockets are small numbers here too, so they fit the tests' descriptors.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstddef>

#define MSG_NOSIGNAL 0
#define SHUT_WR SD_SEND

inline const int kSocketsStarted = [] {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data);
}();

inline void CloseSocket(int descriptor) {
  closesocket(static_cast<SOCKET>(descriptor));
}

inline int poll(pollfd* polled, unsigned count, int timeoutMs) {
  return WSAPoll(polled, count, timeoutMs);
}

inline int setsockopt(int descriptor, int level, int name, const void* value, socklen_t size) {
  return setsockopt(static_cast<SOCKET>(descriptor), level, name, static_cast<const char*>(value), size);
}

// Templates, so that they fit better than the system's own functions whatever the bytes are called.
template <class Byte>
long long send(int descriptor, const Byte* data, size_t length, int flags) {
  return ::send(static_cast<SOCKET>(descriptor), reinterpret_cast<const char*>(data), static_cast<int>(length), flags);
}

template <class Byte>
long long recv(int descriptor, Byte* data, size_t length, int flags) {
  return ::recv(static_cast<SOCKET>(descriptor), reinterpret_cast<char*>(data), static_cast<int>(length), flags);
}

template <class Byte>
long long sendto(int descriptor, const Byte* data, size_t length, int flags, const sockaddr* to, socklen_t size) {
  return ::sendto(static_cast<SOCKET>(descriptor), reinterpret_cast<const char*>(data), static_cast<int>(length), flags,
                  to, size);
}

template <class Byte>
long long recvfrom(int descriptor, Byte* data, size_t length, int flags, sockaddr* from, socklen_t* size) {
  return ::recvfrom(static_cast<SOCKET>(descriptor), reinterpret_cast<char*>(data), static_cast<int>(length), flags,
                    from, size);
}
