#include "platform/socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>

#include "platform/socket_gate.h"

namespace zelk {

namespace {

using Clock = std::chrono::steady_clock;

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
  constexpr std::array kLost{ECONNRESET,   ETIMEDOUT,   ECONNREFUSED, ECONNABORTED,
                             EHOSTUNREACH, ENETUNREACH, ENETDOWN,     ENETRESET};
  return std::find(kLost.begin(), kLost.end(), error) != kLost.end();
}

bool WouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK;
}

int MillisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

int ClampLength(size_t length) {
  return static_cast<int>(std::min(length, static_cast<size_t>(INT_MAX)));
}

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
  const in_addr system{address};
  return inet_ntop(AF_INET, &system, text.data(), text.size()) == nullptr ? std::string() : std::string(text.data());
}

void StartSockets() {}

// The descriptor is always non-blocking for the system; blocking calls are waits of our own, so that Close can release
// them. Both descriptors are written while the gate is idle or by its last leaver, and read only inside it.
struct CSocket::SImpl {
  CSocketGate gate;
  int descriptor = -1;
  int wake = -1;
  bool isStream = false;
  std::atomic<bool> nonBlocking{false};
  std::atomic<bool> isLost{false};    // the connection was reset; the system says so only once
  std::atomic<bool> hasEnded{false};  // the peer's orderly end was read: a later reset changes nothing

  bool Open(int type);
  void Close();
  void Release();
  EWait Wait(short events, int32_t timeoutMs);
  EWait WaitConnected(int32_t timeoutMs);
  bool SetOption(int name, int value);
  bool NoteError(int error);
  template <class Call>
  int Retry(short events, Call call);
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
  descriptor = socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) {
    return false;
  }
  wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wake < 0) {
    close(descriptor);
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
  // The descriptor stays readable for ever, so every wait that has begun or will begin returns at once.
  const eventfd_t one = 1;
  eventfd_write(wake, one);
  if (gate.Leave()) {
    Release();
  }
}

void CSocket::SImpl::Release() {
  close(descriptor);
  close(wake);
  gate.Released();
}

EWait CSocket::SImpl::Wait(short events, int32_t timeoutMs) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
  std::array<pollfd, 2> polled{pollfd{descriptor, events, 0}, pollfd{wake, POLLIN, 0}};
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

// A pending connect ends by the socket becoming writable, refused or not: the stored error tells which.
EWait CSocket::SImpl::WaitConnected(int32_t timeoutMs) {
  const EWait result = Wait(POLLOUT, timeoutMs);
  if (result != EWait::kReady || !isStream) {
    return result;
  }
  int error = 0;
  socklen_t size = sizeof error;
  if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    return EWait::kError;
  }
  return NoteError(error) || isLost ? EWait::kError : EWait::kReady;
}

bool CSocket::SImpl::SetOption(int name, int value) {
  return setsockopt(descriptor, SOL_SOCKET, name, &value, sizeof value) == 0;
}

// Remembers a lost connection; true when the error is not 0.
bool CSocket::SImpl::NoteError(int error) {
  if (isStream && IsConnectionLost(error)) {
    isLost = true;
  }
  return error != 0;
}

// Runs a system call until it is not interrupted and, on a blocking socket, until it does not have to wait.
template <class Call>
int CSocket::SImpl::Retry(short events, Call call) {
  while (true) {
    const ssize_t moved = call();
    if (moved >= 0) {
      return static_cast<int>(moved);
    }
    const int error = errno;
    if (error == EINTR) {
      continue;
    }
    if (!WouldBlock(error)) {
      NoteError(error);
      return -1;
    }
    if (nonBlocking || Wait(events, kWaitForever) != EWait::kReady) {
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

// The forced options go past the system-wide limit where the process may; a burst from a card then fits.
bool CSocket::SetReceiveBuffer(int bytes) {
  const CInside inside(*impl);
  return inside && (impl->SetOption(SO_RCVBUFFORCE, bytes) || impl->SetOption(SO_RCVBUF, bytes));
}

bool CSocket::SetSendBuffer(int bytes) {
  const CInside inside(*impl);
  return inside && (impl->SetOption(SO_SNDBUFFORCE, bytes) || impl->SetOption(SO_SNDBUF, bytes));
}

bool CSocket::SetBroadcast(bool on) {
  const CInside inside(*impl);
  return inside && impl->SetOption(SO_BROADCAST, on ? 1 : 0);
}

bool CSocket::SetSharedPort() {
  const CInside inside(*impl);
  return inside && impl->SetOption(SO_REUSEADDR, 1);
}

bool CSocket::Bind(const SIpv4Endpoint& local) {
  const CInside inside(*impl);
  const sockaddr_in system = ToSystem(local);
  return inside && bind(impl->descriptor, reinterpret_cast<const sockaddr*>(&system), sizeof system) == 0;
}

uint16_t CSocket::LocalPort() const {
  const CInside inside(*impl);
  sockaddr_in system{};
  socklen_t size = sizeof system;
  if (!inside || getsockname(impl->descriptor, reinterpret_cast<sockaddr*>(&system), &size) != 0) {
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
  if (connect(impl->descriptor, reinterpret_cast<const sockaddr*>(&system), sizeof system) == 0) {
    return EConnect::kDone;
  }
  // An interrupted connect goes on by itself, as a pending one does.
  if (errno != EINPROGRESS && errno != EINTR) {
    impl->NoteError(errno);
    return EConnect::kFailed;
  }
  if (impl->nonBlocking) {
    return EConnect::kPending;
  }
  return impl->WaitConnected(kWaitForever) == EWait::kReady ? EConnect::kDone : EConnect::kFailed;
}

EWait CSocket::WaitReadable(int32_t timeoutMs) {
  const CInside inside(*impl);
  return inside ? impl->Wait(POLLIN, timeoutMs) : EWait::kError;
}

EWait CSocket::WaitWritable(int32_t timeoutMs) {
  const CInside inside(*impl);
  return inside ? impl->WaitConnected(timeoutMs) : EWait::kError;
}

int CSocket::Send(const void* data, size_t length) {
  const CInside inside(*impl);
  if (!inside) {
    return -1;
  }
  const int wanted = ClampLength(length);
  int sent = 0;
  do {
    const int moved = impl->Retry(POLLOUT, [&] {
      return send(impl->descriptor, static_cast<const char*>(data) + sent, static_cast<size_t>(wanted - sent),
                  MSG_NOSIGNAL);
    });
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
  const size_t asked = static_cast<size_t>(ClampLength(capacity));
  const int moved = impl->Retry(POLLIN, [&] { return recv(impl->descriptor, data, asked, 0); });
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
  return impl->Retry(POLLOUT, [&] {
    return sendto(impl->descriptor, data, static_cast<size_t>(ClampLength(length)), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&system), sizeof system);
  });
}

int CSocket::ReceiveFrom(void* data, size_t capacity, SIpv4Endpoint& remote) {
  const CInside inside(*impl);
  if (!inside) {
    return -1;
  }
  sockaddr_in system{};
  socklen_t size = sizeof system;
  const int moved = impl->Retry(POLLIN, [&] {
    return recvfrom(impl->descriptor, data, static_cast<size_t>(ClampLength(capacity)), 0,
                    reinterpret_cast<sockaddr*>(&system), &size);
  });
  if (moved >= 0) {
    remote = {system.sin_addr.s_addr, ntohs(system.sin_port)};
  }
  return moved;
}

}  // namespace zelk
