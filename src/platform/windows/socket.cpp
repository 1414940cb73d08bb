#include "platform/socket.h"

#include <winsock2.h>
//
#include <mswsock.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>

#include "platform/socket_gate.h"

namespace zelk {

namespace {

sockaddr_in ToSystem(const SIpv4Endpoint& endpoint) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(endpoint.port);
  system.sin_addr.s_addr = endpoint.address;
  return system;
}

// Errors after which a connection is gone for good. A full buffer, a missing connection or a write behind an orderly
// end are not among them.
bool IsConnectionLost(int error) {
  constexpr std::array kLost{WSAECONNRESET,   WSAETIMEDOUT,   WSAECONNREFUSED, WSAECONNABORTED,
                             WSAEHOSTUNREACH, WSAENETUNREACH, WSAENETDOWN,     WSAENETRESET};
  return std::find(kLost.begin(), kLost.end(), error) != kLost.end();
}

int ClampLength(size_t length) {
  return static_cast<int>(std::min(length, static_cast<size_t>(INT_MAX)));
}

bool SetBlocking(SOCKET handle, bool blocking) {
  u_long nonBlocking = blocking ? 0 : 1;
  return ioctlsocket(handle, static_cast<long>(FIONBIO), &nonBlocking) == 0;
}

// A datagram socket connected to itself: one byte in it keeps it readable for ever.
SOCKET MakeWakeSocket() {
  SOCKET made = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  sockaddr_in own = ToSystem({htonl(INADDR_LOOPBACK), 0});
  int size = sizeof own;
  auto* const address = reinterpret_cast<sockaddr*>(&own);
  if (made != INVALID_SOCKET && (bind(made, address, size) != 0 || getsockname(made, address, &size) != 0 ||
                                 connect(made, address, size) != 0 || !SetBlocking(made, false))) {
    closesocket(made);
    made = INVALID_SOCKET;
  }
  return made;
}

enum class EInterest { kRead, kWrite };

}  // namespace

bool ParseIpv4(const char* text, uint32_t& address) {
  in_addr parsed{};
  if (text == nullptr || inet_pton(AF_INET, text, &parsed) != 1) {
    return false;
  }
  address = parsed.s_addr;
  return true;
}

bool ResolveIpv4(const char* hostName, uint32_t& address) {
  if (hostName == nullptr || *hostName == '\0') {
    return false;
  }
  if (ParseIpv4(hostName, address)) {
    return true;
  }
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(hostName, nullptr, &wanted, &found) != 0 || found == nullptr) {
    return false;
  }
  address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
  freeaddrinfo(found);
  return true;
}

std::string FormatIpv4(uint32_t address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  in_addr system{};
  system.s_addr = address;
  return inet_ntop(AF_INET, &system, text.data(), text.size()) != nullptr ? std::string(text.data()) : std::string();
}

void StartSockets() {
  WSADATA ignored{};
  (void)WSAStartup(MAKEWORD(2, 2), &ignored);
}

// The handles are written while the gate is idle or by its last leaver, and read only inside it. The system's socket is
// always non-blocking; a blocking call waits here, where a close can release it.
struct CSocket::SImpl {
  CSocketGate gate;
  SOCKET handle = INVALID_SOCKET;
  SOCKET wake = INVALID_SOCKET;
  bool isStream = false;
  std::atomic<bool> nonBlocking{false};
  std::atomic<bool> isLost{false};    // the connection was reset
  std::atomic<bool> hasEnded{false};  // the peer's orderly end was read: a later reset changes nothing

  bool Open(int type);
  bool OpenHandles(int type);
  void Close();
  void Release();
  EWait Wait(EInterest interest, int32_t timeoutMs);
  bool SetOption(int name, int value);
  void NoteError(int error);
  template <class Call>
  int Retry(EInterest interest, Call call);
};

namespace {

// Holds a socket's gate for the length of a call.
template <class Impl>
class CInside {
 public:
  explicit CInside(Impl& impl) : entered(impl), open(impl.gate.Enter()) {}
  ~CInside() {
    if (entered.gate.Leave()) {
      entered.Release();
    }
  }
  CInside(const CInside&) = delete;
  CInside& operator=(const CInside&) = delete;
  explicit operator bool() const { return open; }

 private:
  Impl& entered;
  const bool open;
};

}  // namespace

bool CSocket::SImpl::Open(int type) {
  Close();
  gate.WaitIdle();
  if (!OpenHandles(type)) {
    return false;
  }
  isStream = type == SOCK_STREAM;
  nonBlocking = false;
  isLost = false;
  hasEnded = false;
  gate.Publish();
  return true;
}

bool CSocket::SImpl::OpenHandles(int type) {
  handle = socket(AF_INET, type, 0);
  if (handle == INVALID_SOCKET) {
    return false;
  }
  wake = MakeWakeSocket();
  if (wake == INVALID_SOCKET || !SetBlocking(handle, false)) {
    closesocket(handle);
    if (wake != INVALID_SOCKET) {
      closesocket(wake);
    }
    return false;
  }
  if (type == SOCK_DGRAM) {
    // Otherwise an answer "nobody listens there" to a datagram sent would fail the next receive.
    BOOL reports = FALSE;
    DWORD bytes = 0;
    WSAIoctl(handle, SIO_UDP_CONNRESET, &reports, sizeof reports, nullptr, 0, &bytes, nullptr, nullptr);
  }
  return true;
}

void CSocket::SImpl::Close() {
  if (!gate.BeginClose()) {
    return;
  }
  // The wake socket stays readable, so every wait that has begun or will begin returns at once.
  const char one = 1;
  send(wake, &one, sizeof one, 0);
  if (gate.Leave()) {
    Release();
  }
}

void CSocket::SImpl::Release() {
  closesocket(handle);
  closesocket(wake);
  gate.Released();
}

// A connection attempt that failed shows in the third set.
EWait CSocket::SImpl::Wait(EInterest interest, int32_t timeoutMs) {
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
  if (ready < 0 || FD_ISSET(wake, &readable) != 0) {
    return EWait::kError;
  }
  if (interest == EInterest::kRead || FD_ISSET(handle, &failed) == 0) {
    return EWait::kReady;
  }
  int error = 0;
  int size = sizeof error;
  getsockopt(handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
  NoteError(error);
  return EWait::kError;
}

bool CSocket::SImpl::SetOption(int name, int value) {
  return setsockopt(handle, SOL_SOCKET, name, reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

void CSocket::SImpl::NoteError(int error) {
  if (isStream && IsConnectionLost(error)) {
    isLost = true;
  }
}

// Runs a system call until, on a blocking socket, it does not have to wait.
template <class Call>
int CSocket::SImpl::Retry(EInterest interest, Call call) {
  while (true) {
    const int moved = call();
    if (moved != SOCKET_ERROR) {
      return moved;
    }
    const int error = WSAGetLastError();
    if (error != WSAEWOULDBLOCK) {
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
  const CInside inside(*impl);
  if (inside) {
    impl->nonBlocking = on;
  }
  return static_cast<bool>(inside);
}

bool CSocket::SetReceiveBuffer(int bytes) {
  const CInside inside(*impl);
  return inside && impl->SetOption(SO_RCVBUF, bytes);
}

bool CSocket::SetSendBuffer(int bytes) {
  const CInside inside(*impl);
  return inside && impl->SetOption(SO_SNDBUF, bytes);
}

bool CSocket::SetBroadcast(bool on) {
  const CInside inside(*impl);
  return inside && impl->SetOption(SO_BROADCAST, on ? 1 : 0);
}

// Here a wildcard and a specific bind stand side by side anyway; SO_REUSEADDR would let a stranger take the port over.
bool CSocket::SetSharedPort() {
  const CInside inside(*impl);
  return static_cast<bool>(inside);
}

bool CSocket::Bind(const SIpv4Endpoint& local) {
  const CInside inside(*impl);
  const sockaddr_in system = ToSystem(local);
  return inside && bind(impl->handle, reinterpret_cast<const sockaddr*>(&system), sizeof system) == 0;
}

uint16_t CSocket::LocalPort() const {
  const CInside inside(*impl);
  sockaddr_in system{};
  int size = sizeof system;
  if (!inside || getsockname(impl->handle, reinterpret_cast<sockaddr*>(&system), &size) != 0) {
    return 0;
  }
  return ntohs(system.sin_port);
}

CSocket::EConnect CSocket::Connect(const SIpv4Endpoint& remote) {
  const CInside inside(*impl);
  if (!inside) {
    return EConnect::kFailed;
  }
  const sockaddr_in system = ToSystem(remote);
  if (connect(impl->handle, reinterpret_cast<const sockaddr*>(&system), sizeof system) == 0) {
    return EConnect::kDone;
  }
  const int error = WSAGetLastError();
  if (error != WSAEWOULDBLOCK) {
    impl->NoteError(error);
    return EConnect::kFailed;
  }
  if (impl->nonBlocking) {
    return EConnect::kPending;
  }
  return impl->Wait(EInterest::kWrite, kWaitForever) == EWait::kReady ? EConnect::kDone : EConnect::kFailed;
}

EWait CSocket::WaitReadable(int32_t timeoutMs) {
  const CInside inside(*impl);
  return inside ? impl->Wait(EInterest::kRead, timeoutMs) : EWait::kError;
}

EWait CSocket::WaitWritable(int32_t timeoutMs) {
  const CInside inside(*impl);
  return inside && !impl->isLost ? impl->Wait(EInterest::kWrite, timeoutMs) : EWait::kError;
}

int CSocket::Send(const void* data, size_t length) {
  const CInside inside(*impl);
  if (!inside) {
    return -1;
  }
  const int wanted = ClampLength(length);
  int sent = 0;
  do {
    const int moved = impl->Retry(
        EInterest::kWrite, [&] { return send(impl->handle, static_cast<const char*>(data) + sent, wanted - sent, 0); });
    if (moved < 0) {
      return sent > 0 ? sent : -1;
    }
    sent += moved;
  } while (sent < wanted && !impl->nonBlocking);
  return sent;
}

int CSocket::Receive(void* data, size_t capacity) {
  const CInside inside(*impl);
  if (!inside) {
    return -1;
  }
  const int asked = ClampLength(capacity);
  const int moved =
      impl->Retry(EInterest::kRead, [&] { return recv(impl->handle, static_cast<char*>(data), asked, 0); });
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
  const CInside inside(*impl);
  if (!inside) {
    return -1;
  }
  const sockaddr_in system = ToSystem(remote);
  return impl->Retry(EInterest::kWrite, [&] {
    return sendto(impl->handle, static_cast<const char*>(data), ClampLength(length), 0,
                  reinterpret_cast<const sockaddr*>(&system), sizeof system);
  });
}

int CSocket::ReceiveFrom(void* data, size_t capacity, SIpv4Endpoint& remote) {
  const CInside inside(*impl);
  if (!inside) {
    return -1;
  }
  sockaddr_in system{};
  int size = sizeof system;
  const int asked = ClampLength(capacity);
  const int moved = impl->Retry(EInterest::kRead, [&] {
    const int got =
        recvfrom(impl->handle, static_cast<char*>(data), asked, 0, reinterpret_cast<sockaddr*>(&system), &size);
    // A datagram longer than the buffer was cut to it, which this system calls an error.
    return got == SOCKET_ERROR && WSAGetLastError() == WSAEMSGSIZE ? asked : got;
  });
  if (moved >= 0) {
    remote = {system.sin_addr.s_addr, ntohs(system.sin_port)};
  }
  return moved;
}

}  // namespace zelk
