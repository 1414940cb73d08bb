// SPDX-License-Identifier: GPL-2.0-only
#include <mswsock.h>

#include <algorithm>
#include <array>

#include "platform/native_socket.h"

namespace zelk {

namespace {

bool SetNonBlocking(SOCKET handle) {
  u_long on = 1;
  return ioctlsocket(handle, static_cast<long>(FIONBIO), &on) == 0;
}

// Connected to itself: one byte in it keeps it readable.
SOCKET MakeWakeSocket() {
  SOCKET made = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof own;
  auto* const address = reinterpret_cast<sockaddr*>(&own);
  if (made != kNoSocket && (bind(made, address, size) != 0 || getsockname(made, address, &size) != 0 ||
                            connect(made, address, size) != 0 || !SetNonBlocking(made))) {
    closesocket(made);
    made = kNoSocket;
  }
  return made;
}

}  // namespace

void StartSockets() {
  WSADATA ignored{};
  (void)WSAStartup(MAKEWORD(2, 2), &ignored);
}

const char* ReceiveBufferLimit() {
  return "";
}

const char* SendBufferLimit() {
  return "";
}

bool SNativeSocket::Open(int type) {
  isDatagram = type == SOCK_DGRAM;
  handle = socket(AF_INET, type, 0);
  if (handle == kNoSocket) {
    return false;
  }
  wake = MakeWakeSocket();
  if (wake == kNoSocket || !SetNonBlocking(handle)) {
    closesocket(handle);
    if (wake != kNoSocket) {
      closesocket(wake);
    }
    return false;
  }
  if (isDatagram) {
    // Otherwise an answer "nobody listens there" to a datagram sent would fail the next receive.
    BOOL reports = FALSE;
    DWORD bytes = 0;
    WSAIoctl(handle, SIO_UDP_CONNRESET, &reports, sizeof reports, nullptr, 0, &bytes, nullptr, nullptr);
  }
  return true;
}

void SNativeSocket::Close() {
  closesocket(handle);
  closesocket(wake);
}

void SNativeSocket::Wake() {
  const char one = 1;
  send(wake, &one, sizeof one, 0);
}

// A connection attempt that failed shows in the third set.
EWait SNativeSocket::Wait(EInterest interest, int32_t timeoutMs) const {
  fd_set readable;
  fd_set writable;
  fd_set failed;
  FD_ZERO(&readable);
  FD_ZERO(&writable);
  FD_ZERO(&failed);
  FD_SET(handle, interest == EInterest::kRead ? &readable : &writable);
  FD_SET(handle, &failed);
  FD_SET(wake, &readable);
  timeval limit{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
  const int ready = select(0, &readable, &writable, &failed, timeoutMs < 0 ? nullptr : &limit);
  if (ready == 0) {
    return EWait::kTimeout;
  }
  const bool hasFailed = interest == EInterest::kWrite && ready > 0 && FD_ISSET(handle, &failed) != 0;
  return ready < 0 || hasFailed || FD_ISSET(wake, &readable) != 0 ? EWait::kError : EWait::kReady;
}

bool SNativeSocket::SetBuffer(int name, int bytes) {
  return setsockopt(handle, SOL_SOCKET, name, reinterpret_cast<const char*>(&bytes), sizeof bytes) == 0;
}

int SNativeSocket::Buffer(int name) const {
  int bytes = 0;
  int size = sizeof bytes;
  return getsockopt(handle, SOL_SOCKET, name, reinterpret_cast<char*>(&bytes), &size) == 0 ? bytes : 0;
}

// Here a wildcard and a specific bind stand side by side anyway; SO_REUSEADDR would let a stranger take the port over.
bool SNativeSocket::SetSharedPort() {
  return true;
}

bool SNativeSocket::SetHoldsBack(bool) {
  return false;
}

int SNativeSocket::SendTo(const void* data, int length, const sockaddr_in& to) {
  return sendto(handle, static_cast<const char*>(data), length, kSendFlags, reinterpret_cast<const sockaddr*>(&to),
                sizeof to);
}

int SNativeSocket::ReceiveFrom(void* data, int capacity, sockaddr_in& from) {
  int size = sizeof from;
  const int got = recvfrom(handle, static_cast<char*>(data), capacity, 0, reinterpret_cast<sockaddr*>(&from), &size);
  // A datagram longer than the buffer was cut to it, which this system calls an error.
  return got == SOCKET_ERROR && WSAGetLastError() == WSAEMSGSIZE ? capacity : got;
}

// Closing the socket would end a receive that waits in the system, but its number could be another socket's by then.
int SNativeSocket::ReceiveFromWaiting(void* data, int capacity, sockaddr_in& from) {
  int got = SOCKET_ERROR;
  do {
    if (Wait(EInterest::kRead, kWaitForever) != EWait::kReady) {
      return SOCKET_ERROR;
    }
    got = ReceiveFrom(data, capacity, from);
  } while (got == SOCKET_ERROR && WouldBlock(WSAGetLastError()));
  return got;
}

int LastSocketError() {
  return WSAGetLastError();
}

bool IsInterrupted(int error) {
  return error == WSAEINTR;
}

bool WouldBlock(int error) {
  return error == WSAEWOULDBLOCK;
}

bool IsConnectPending(int error) {
  return error == WSAEWOULDBLOCK;
}

bool IsConnectionLost(int error) {
  constexpr std::array kLost{WSAECONNRESET,   WSAETIMEDOUT,   WSAECONNREFUSED, WSAECONNABORTED,
                             WSAEHOSTUNREACH, WSAENETUNREACH, WSAENETDOWN,     WSAENETRESET};
  return std::find(kLost.begin(), kLost.end(), error) != kLost.end();
}

}  // namespace zelk
