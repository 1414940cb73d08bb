// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

// Stands before the system's setsockopt in the program that includes it (in one of its sources): it notes what buffer
// sizes are asked for, and can make the system one with a low limit and the process one that may not go past it.
struct SBufferLimit {
  std::atomic<int> limit{0};  // 0: the system's own
  std::atomic<int> receiveAsked{0};
  std::atomic<int> sendAsked{0};
};
inline SBufferLimit bufferLimit;
constexpr bool kBufferLimitWorks = true;

extern "C" int setsockopt(int handle, int level, int name, const void* value, socklen_t size) noexcept {
  int asked = 0;
  const bool isReceive = name == SO_RCVBUF || name == SO_RCVBUFFORCE;
  const bool isSend = name == SO_SNDBUF || name == SO_SNDBUFFORCE;
  if (level != SOL_SOCKET || !(isReceive || isSend) || size != sizeof asked)
    return static_cast<int>(syscall(SYS_setsockopt, handle, level, name, value, size));
  std::memcpy(&asked, value, sizeof asked);
  (isReceive ? bufferLimit.receiveAsked : bufferLimit.sendAsked) = asked;
  const int limit = bufferLimit.limit;
  if (limit > 0 && (name == SO_RCVBUFFORCE || name == SO_SNDBUFFORCE)) {
    errno = EPERM;
    return -1;
  }
  const int passed = limit > 0 ? std::min(asked, limit) : asked;
  return static_cast<int>(syscall(SYS_setsockopt, handle, level, name, &passed, sizeof passed));
}
