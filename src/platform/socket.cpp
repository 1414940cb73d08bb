// SPDX-License-Identifier: GPL-2.0-only
#include "platform/socket.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>

#include "platform/native_socket.h"
#include "platform/socket_gate.h"

namespace zelk {

namespace {

sockaddr_in ToSystem(const SIpv4Endpoint& endpoint) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(endpoint.port);
  system.sin_addr.s_addr = endpoint.address.networkOrder;
  return system;
}

int ClampLength(size_t length) {
  return static_cast<int>(std::min(length, static_cast<size_t>(INT_MAX)));
}

}  // namespace

// The system's socket never blocks by itself; blocking calls are waits of our own, so that Close can release them. The
// native part is written while the gate is idle or by its last leaver, and read only inside it.
struct CSocket::SImpl {
  CSocketGate gate;
  SNativeSocket native;
  bool isStream = false;
  std::atomic<bool> nonBlocking{false};
  std::atomic<bool> isLost{false};    // the connection was reset; the system may say so only once
  std::atomic<bool> hasEnded{false};  // the peer's orderly end was read: a later reset changes nothing

  bool Open(int type);
  void Close();
  void Release();
  EWait Wait(EInterest interest, int32_t timeoutMs);
  EWait WaitWritable(int32_t timeoutMs);
  bool SetOption(int level, int name, int value);
  int PendingError() const;
  void NoteError(int error);
  template <class Call>
  int Retry(EInterest interest, Call call);
};

bool CSocket::SImpl::Open(int type) {
  Close();
  gate.WaitIdle();
  if (!native.Open(type)) {
    return false;
  }
  isStream = type == SOCK_STREAM;
  nonBlocking = false;
  isLost = false;
  hasEnded = false;
  gate.Publish();
  return true;
}

void CSocket::SImpl::Close() {
  if (!gate.BeginClose()) {
    return;
  }
  native.Wake();
  if (gate.Leave()) {
    Release();
  }
}

void CSocket::SImpl::Release() {
  native.Close();
  gate.Released();
}

EWait CSocket::SImpl::Wait(EInterest interest, int32_t timeoutMs) {
  return interest == EInterest::kWrite && isStream ? WaitWritable(timeoutMs) : native.Wait(interest, timeoutMs);
}

// A pending connect ends by the stream becoming writable, refused or not: the stored error tells which.
EWait CSocket::SImpl::WaitWritable(int32_t timeoutMs) {
  if (isLost) {
    return EWait::kError;
  }
  const EWait result = native.Wait(EInterest::kWrite, timeoutMs);
  if (result == EWait::kTimeout) {
    return result;
  }
  const int error = PendingError();
  NoteError(error);
  return result == EWait::kError || error != 0 || isLost ? EWait::kError : EWait::kReady;
}

int CSocket::SImpl::PendingError() const {
  int error = 0;
  NativeSize size = sizeof error;
  const bool told = getsockopt(native.handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) == 0;
  return told ? error : LastSocketError();
}

bool CSocket::SImpl::SetOption(int level, int name, int value) {
  return setsockopt(native.handle, level, name, reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

void CSocket::SImpl::NoteError(int error) {
  if (isStream && IsConnectionLost(error)) {
    isLost = true;
  }
}

// Runs a system call until it is not interrupted and, on a blocking socket, until it does not have to wait.
template <class Call>
int CSocket::SImpl::Retry(EInterest interest, Call call) {
  while (true) {
    const auto moved = call();
    if (moved >= 0) {
      return static_cast<int>(moved);
    }
    const int error = LastSocketError();
    if (IsInterrupted(error)) {
      continue;
    }
    if (!WouldBlock(error)) {
      NoteError(error);
      return -1;
    }
    if (nonBlocking || Wait(interest, kWaitForever) != EWait::kReady) {
      return -1;
    }
  }
}

CSocket::CSocket() : impl(std::make_unique<SImpl>()) {}

CSocket::~CSocket() {
  impl->Close();
  impl->gate.WaitIdle();
}

bool CSocket::OpenTcp() {
  return impl->Open(SOCK_STREAM);
}

bool CSocket::OpenUdp() {
  return impl->Open(SOCK_DGRAM);
}

void CSocket::Close() {
  impl->Close();
}

bool CSocket::IsOpen() const {
  return impl->gate.IsOpen();
}

bool CSocket::SetNonBlocking(bool on) {
  const CInsideGate inside(*impl);
  if (inside) {
    impl->nonBlocking = on;
  }
  return static_cast<bool>(inside);
}

bool CSocket::SetReceiveBuffer(int bytes) {
  const CInsideGate inside(*impl);
  return inside && impl->native.SetBuffer(SO_RCVBUF, bytes);
}

bool CSocket::SetSendBuffer(int bytes) {
  const CInsideGate inside(*impl);
  return inside && impl->native.SetBuffer(SO_SNDBUF, bytes);
}

int CSocket::ReceiveBuffer() const {
  const CInsideGate inside(*impl);
  return inside ? impl->native.Buffer(SO_RCVBUF) : 0;
}

int CSocket::SendBuffer() const {
  const CInsideGate inside(*impl);
  return inside ? impl->native.Buffer(SO_SNDBUF) : 0;
}

bool CSocket::SetNoDelay(bool on) {
  const CInsideGate inside(*impl);
  return inside && impl->SetOption(IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

bool CSocket::SetHoldsBack(bool on) {
  const CInsideGate inside(*impl);
  return inside && impl->native.SetHoldsBack(on);
}

bool CSocket::SetBroadcast(bool on) {
  const CInsideGate inside(*impl);
  return inside && impl->SetOption(SOL_SOCKET, SO_BROADCAST, on ? 1 : 0);
}

bool CSocket::SetSharedPort() {
  const CInsideGate inside(*impl);
  return inside && impl->native.SetSharedPort();
}

bool CSocket::Bind(const SIpv4Endpoint& local) {
  const CInsideGate inside(*impl);
  const sockaddr_in system = ToSystem(local);
  return inside && bind(impl->native.handle, reinterpret_cast<const sockaddr*>(&system), sizeof system) == 0;
}

uint16_t CSocket::LocalPort() const {
  const CInsideGate inside(*impl);
  sockaddr_in system{};
  NativeSize size = sizeof system;
  if (!inside || getsockname(impl->native.handle, reinterpret_cast<sockaddr*>(&system), &size) != 0) {
    return 0;
  }
  return ntohs(system.sin_port);
}

CSocket::EConnect CSocket::Connect(const SIpv4Endpoint& remote) {
  const CInsideGate inside(*impl);
  if (!inside) {
    return EConnect::kFailed;
  }
  const sockaddr_in system = ToSystem(remote);
  if (connect(impl->native.handle, reinterpret_cast<const sockaddr*>(&system), sizeof system) == 0) {
    return EConnect::kDone;
  }
  const int error = LastSocketError();
  if (!IsConnectPending(error)) {
    impl->NoteError(error);
    return EConnect::kFailed;
  }
  if (impl->nonBlocking) {
    return EConnect::kPending;
  }
  return impl->Wait(EInterest::kWrite, kWaitForever) == EWait::kReady ? EConnect::kDone : EConnect::kFailed;
}

EWait CSocket::WaitReadable(int32_t timeoutMs) {
  const CInsideGate inside(*impl);
  return inside ? impl->Wait(EInterest::kRead, timeoutMs) : EWait::kError;
}

EWait CSocket::WaitWritable(int32_t timeoutMs) {
  const CInsideGate inside(*impl);
  return inside ? impl->Wait(EInterest::kWrite, timeoutMs) : EWait::kError;
}

int CSocket::Send(const void* data, size_t length) {
  const CInsideGate inside(*impl);
  if (!inside) {
    return -1;
  }
  const int wanted = ClampLength(length);
  int sent = 0;
  do {
    const int moved = impl->Retry(EInterest::kWrite, [&] {
      return send(impl->native.handle, static_cast<const char*>(data) + sent, static_cast<NativeLength>(wanted - sent),
                  kSendFlags);
    });
    if (moved < 0) {
      return sent > 0 ? sent : -1;
    }
    sent += moved;
  } while (sent < wanted && !impl->nonBlocking);
  return sent;
}

int CSocket::Receive(void* data, size_t capacity) {
  const CInsideGate inside(*impl);
  if (!inside) {
    return -1;
  }
  const int asked = ClampLength(capacity);
  const int moved = impl->Retry(EInterest::kRead, [&] {
    return recv(impl->native.handle, static_cast<char*>(data), static_cast<NativeLength>(asked), kReceiveFlags);
  });
  if (!impl->isStream || moved > 0 || asked == 0) {
    return moved;
  }
  // What the peer sent before a reset is still handed out above; from here on the end is told the same way for ever.
  if (impl->hasEnded) {
    return 0;
  }
  if (moved == 0 && !impl->isLost) {
    impl->hasEnded = true;
    return 0;
  }
  return -1;
}

int CSocket::SendTo(const void* data, size_t length, const SIpv4Endpoint& remote) {
  const CInsideGate inside(*impl);
  if (!inside) {
    return -1;
  }
  const sockaddr_in system = ToSystem(remote);
  return impl->Retry(EInterest::kWrite, [&] { return impl->native.SendTo(data, ClampLength(length), system); });
}

int CSocket::ReceiveFrom(void* data, size_t capacity, SIpv4Endpoint& remote) {
  const CInsideGate inside(*impl);
  if (!inside) {
    return -1;
  }
  sockaddr_in system{};
  const int moved =
      impl->Retry(EInterest::kRead, [&] { return impl->native.ReceiveFrom(data, ClampLength(capacity), system); });
  if (moved >= 0) {
    remote = {{system.sin_addr.s_addr}, ntohs(system.sin_port)};
  }
  return moved;
}

int CSocket::ReceiveFromWaiting(void* data, size_t capacity, SIpv4Endpoint& remote) {
  const CInsideGate inside(*impl);
  if (!inside || impl->isStream) {
    return -1;
  }
  sockaddr_in system{};
  int moved = 0;
  do {
    moved = impl->native.ReceiveFromWaiting(data, ClampLength(capacity), system);
  } while (moved < 0 && IsInterrupted(LastSocketError()) && impl->gate.IsOpen());
  // A socket that was closed meanwhile may give what came before, or nothing.
  if (moved < 0 || (moved == 0 && !impl->gate.IsOpen())) {
    return -1;
  }
  remote = {{system.sin_addr.s_addr}, ntohs(system.sin_port)};
  return moved;
}

}  // namespace zelk
