// SPDX-License-Identifier: GPL-2.0-only
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>

#include "platform/native_socket.h"

namespace zelk {

namespace {

using Clock = std::chrono::steady_clock;

int MillisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

bool SetInt(int descriptor, int name, int value) {
  return setsockopt(descriptor, SOL_SOCKET, name, &value, sizeof value) == 0;
}

}  // namespace

void StartSockets() {}

const char* ReceiveBufferLimit() {
  return "net.core.rmem_max";
}

const char* SendBufferLimit() {
  return "net.core.wmem_max";
}

bool SNativeSocket::Open(int type) {
  // A stream's connect would wait otherwise. The calls on a datagram socket say each for itself that they do not wait.
  isDatagram = type == SOCK_DGRAM;
  handle = socket(AF_INET, type | (isDatagram ? 0 : SOCK_NONBLOCK) | SOCK_CLOEXEC, 0);
  if (handle < 0) {
    return false;
  }
  wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wake < 0) {
    close(handle);
    return false;
  }
  return true;
}

void SNativeSocket::Close() {
  close(handle);
  close(wake);
}

void SNativeSocket::Wake() {
  const eventfd_t one = 1;
  eventfd_write(wake, one);
  if (isDatagram) {
    // Says that it is not connected, and ends every receive that waits in the system all the same.
    shutdown(handle, SHUT_RD);
  }
}

EWait SNativeSocket::Wait(EInterest interest, int32_t timeoutMs) const {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
  const short events = interest == EInterest::kRead ? POLLIN : POLLOUT;
  std::array<pollfd, 2> polled{pollfd{handle, events, 0}, pollfd{wake, POLLIN, 0}};
  int remaining = timeoutMs;
  int ready = 0;
  while ((ready = poll(polled.data(), polled.size(), remaining < 0 ? -1 : remaining)) < 0 && errno == EINTR) {
    remaining = timeoutMs < 0 ? -1 : MillisecondsUntil(deadline);
  }
  if (ready == 0) {
    return EWait::kTimeout;
  }
  const bool usable = ready > 0 && polled[1].revents == 0 && (polled[0].revents & POLLNVAL) == 0;
  return usable ? EWait::kReady : EWait::kError;
}

// The forced options go past the system-wide limit where the process may (CAP_NET_ADMIN); a burst from a card then
// fits. The others never fail: they cut the size to the limit without a word.
bool SNativeSocket::SetBuffer(int name, int bytes) {
  return SetInt(handle, name == SO_RCVBUF ? SO_RCVBUFFORCE : SO_SNDBUFFORCE, bytes) || SetInt(handle, name, bytes);
}

// The system doubles what it is asked for, for its own records, and tells the double.
int SNativeSocket::Buffer(int name) const {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  return getsockopt(handle, SOL_SOCKET, name, &bytes, &size) == 0 ? bytes / 2 : 0;
}

bool SNativeSocket::SetSharedPort() {
  return SetInt(handle, SO_REUSEADDR, 1);
}

bool SNativeSocket::SetHoldsBack(bool on) {
  const int value = on ? 1 : 0;
  return setsockopt(handle, IPPROTO_TCP, TCP_CORK, &value, sizeof value) == 0;
}

// The two calls that each audio packet takes go to the system as they are: in the C library's functions of that name a
// thread can be cancelled, which costs four atomic operations a packet. Nobody cancels threads here.
int SNativeSocket::SendTo(const void* data, int length, const sockaddr_in& to) {
  return static_cast<int>(
      syscall(SYS_sendto, handle, data, static_cast<size_t>(length), kSendFlags, &to, socklen_t{sizeof to}));
}

int SNativeSocket::ReceiveFrom(void* data, int capacity, sockaddr_in& from) {
  socklen_t size = sizeof from;
  return static_cast<int>(
      recvfrom(handle, data, static_cast<size_t>(capacity), kReceiveFlags, reinterpret_cast<sockaddr*>(&from), &size));
}

int SNativeSocket::ReceiveFromWaiting(void* data, int capacity, sockaddr_in& from) {
  socklen_t size = sizeof from;
  return static_cast<int>(syscall(SYS_recvfrom, handle, data, static_cast<size_t>(capacity), 0, &from, &size));
}

int LastSocketError() {
  return errno;
}

bool IsInterrupted(int error) {
  return error == EINTR;
}

bool WouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK;
}

// An interrupted connect goes on by itself, as a pending one does.
bool IsConnectPending(int error) {
  return error == EINPROGRESS || error == EINTR;
}

bool IsConnectionLost(int error) {
  constexpr std::array kLost{ECONNRESET,   ETIMEDOUT,   ECONNREFUSED, ECONNABORTED,
                             EHOSTUNREACH, ENETUNREACH, ENETDOWN,     ENETRESET};
  return std::find(kLost.begin(), kLost.end(), error) != kLost.end();
}

}  // namespace zelk
