// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/native_socket.h"
#include "platform/simulated/net/fabric.h"
#include "platform/simulated/tasks/side.h"
#include "platform/simulated/world.h"

namespace zelk {

using sim::CWorld;
using sim::SSocket;

namespace {

constexpr int kOptionFailed = -1;

// One call of the library on one of its sockets. Nothing is done outside of a world or on a socket that is closed.
class CCall {
 public:
  explicit CCall(NativeSocket number) : world(CWorld::Current()), inSystem(sim::CScheduler::Current()) {
    if (world != nullptr) {
      world->Scheduler().Step(sim::EStep::kSocket, static_cast<uint64_t>(number));
      socket = Network().machine.Find(static_cast<int32_t>(number));
    }
  }

  explicit operator bool() const { return socket != nullptr; }
  SSocket* operator->() const { return socket; }
  SSocket& operator*() const { return *socket; }
  sim::CScheduler& Scheduler() const { return world->Scheduler(); }
  sim::CNetwork::CImpl& Network() const { return world->Network().Impl(); }
  // What a call of the system gives back: this result, or -1 with the error that is negative here.
  int64_t Result(int64_t result) const {
    if (result >= 0) {
      return result;
    }
    Scheduler().LastError() = static_cast<int>(-result);
    return -1;
  }

 private:
  CWorld* const world;
  const sim::CInSystem inSystem;
  SSocket* socket = nullptr;
};

SIpv4Endpoint FromSystem(const sockaddr* address) {
  sockaddr_in system{};
  std::memcpy(&system, address, sizeof system);
  return {{system.sin_addr.s_addr}, ntohs(system.sin_port)};
}

sockaddr_in ToSystem(SIpv4Endpoint endpoint) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(endpoint.port);
  system.sin_addr.s_addr = endpoint.address.networkOrder;
  return system;
}

std::span<const uint8_t> BytesOf(const char* data, size_t length) {
  return {reinterpret_cast<const uint8_t*>(data), length};
}

int64_t TakeDatagram(SSocket& socket, void* data, size_t capacity, sockaddr_in& from) {
  if (socket.datagrams.empty()) {
    return socket.isWoken ? 0 : -EAGAIN;
  }
  const sim::Datagram datagram = std::move(socket.datagrams.front());
  socket.datagrams.pop_front();
  socket.waitingBytes -= datagram->data.size();
  const size_t taken = std::min(capacity, datagram->data.size());
  if (taken > 0) {
    std::memcpy(data, datagram->data.data(), taken);
  }
  from = ToSystem(datagram->from);
  return static_cast<int64_t>(taken);
}

bool IsReady(const SSocket& socket, EInterest interest, int64_t nowUs) {
  if (socket.isStream) {
    const bool isUnconnected = socket.connection == nullptr;  // as the system has it: hung up
    return isUnconnected ||
           (interest == EInterest::kRead ? socket.connection->IsReadable() : socket.connection->IsWritable());
  }
  if (interest == EInterest::kRead) {
    return !socket.datagrams.empty();
  }
  return socket.line == nullptr || socket.line->BacklogBytes(nowUs) < static_cast<size_t>(socket.sendBytes) / 2;
}

// Nobody wakes a task whose line gets free: it looks again.
int64_t DueUs(const SSocket& socket, EInterest interest, int64_t limitUs, int64_t nowUs) {
  constexpr int64_t kLookAgainUs = sim::kUsPerMs;
  return interest == EInterest::kWrite && !socket.isStream ? std::min(limitUs, nowUs + kLookAgainUs) : limitUs;
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
  CWorld* const world = CWorld::Current();
  if (world == nullptr) {
    return false;
  }
  const sim::CInSystem inSystem(&world->Scheduler());
  world->Scheduler().Step(sim::EStep::kSocket);
  if (world->Scarcity().IsSocketOpenToFail()) {
    world->Scheduler().LastError() = EMFILE;
    return false;
  }
  isDatagram = type == SOCK_DGRAM;
  handle = static_cast<NativeSocket>(world->Network().Impl().machine.Open(!isDatagram));
  return true;
}

void SNativeSocket::Close() {
  const CCall call(handle);
  if (call) {
    if (call->connection != nullptr) {
      call->connection->CloseLibraryEnd();
    }
    call.Network().machine.Close(static_cast<int32_t>(handle));
  }
}

void SNativeSocket::Wake() {
  const CCall call(handle);
  if (call) {
    call->isWoken = true;
    call.Scheduler().Wake(&*call);
  }
}

EWait SNativeSocket::Wait(EInterest interest, int32_t timeoutMs) const {
  const CCall call(handle);
  if (!call) {
    return EWait::kError;
  }
  sim::CScheduler& scheduler = call.Scheduler();
  const int64_t limitUs = timeoutMs < 0 ? sim::kNever : scheduler.NowUs() + int64_t{timeoutMs} * sim::kUsPerMs;
  ++call->inside;
  while (!call->isWoken && !IsReady(*call, interest, scheduler.NowUs()) && scheduler.NowUs() < limitUs) {
    scheduler.Block({sim::EWaitFor::kSocket, &*call, DueUs(*call, interest, limitUs, scheduler.NowUs()), 0});
  }
  --call->inside;
  if (call->isWoken) {
    return EWait::kError;
  }
  return IsReady(*call, interest, scheduler.NowUs()) ? EWait::kReady : EWait::kTimeout;
}

bool SNativeSocket::SetBuffer(int name, int bytes) {
  const CCall call(handle);
  if (!call) {
    return false;
  }
  const int limit = call.Network().machine.bufferLimit;
  const int granted = std::max(limit == 0 ? bytes : std::min(bytes, limit), 1024);
  (name == SO_RCVBUF ? call->receiveBytes : call->sendBytes) = granted;
  return true;
}

int SNativeSocket::Buffer(int name) const {
  const CCall call(handle);
  if (!call) {
    return 0;
  }
  return name == SO_RCVBUF ? call->receiveBytes : call->sendBytes;
}

bool SNativeSocket::SetSharedPort() {
  const CCall call(handle);
  if (call) {
    call->mayShare = true;
  }
  return static_cast<bool>(call);
}

bool SNativeSocket::SetHoldsBack(bool) {
  return false;
}

int SNativeSocket::SendTo(const void* data, int length, const sockaddr_in& to) {
  const CCall call(handle);
  if (!call) {
    return -1;
  }
  const std::span<const uint8_t> bytes(static_cast<const uint8_t*>(data), static_cast<size_t>(length));
  const int error = call.Network().SendDatagram(*call, bytes, FromSystem(reinterpret_cast<const sockaddr*>(&to)));
  return static_cast<int>(call.Result(error == 0 ? length : -error));
}

int SNativeSocket::ReceiveFrom(void* data, int capacity, sockaddr_in& from) {
  const CCall call(handle);
  return call ? static_cast<int>(call.Result(TakeDatagram(*call, data, static_cast<size_t>(capacity), from))) : -1;
}

int SNativeSocket::ReceiveFromWaiting(void* data, int capacity, sockaddr_in& from) {
  Wait(EInterest::kRead, kWaitForever);
  return ReceiveFrom(data, capacity, from);
}

int bind(NativeSocket socket, const sockaddr* address, NativeSize) {
  const CCall call(socket);
  return call ? static_cast<int>(call.Result(-call.Network().machine.Bind(*call, FromSystem(address)))) : -1;
}

int connect(NativeSocket socket, const sockaddr* address, NativeSize) {
  const CCall call(socket);
  return call ? static_cast<int>(call.Result(-call.Network().Connect(*call, FromSystem(address)))) : -1;
}

int getsockname(NativeSocket socket, sockaddr* address, NativeSize* size) {
  const CCall call(socket);
  if (!call) {
    return -1;
  }
  const sockaddr_in system = ToSystem(call->local);
  *size = sizeof system;
  std::memcpy(address, &system, sizeof system);
  return 0;
}

int getsockopt(NativeSocket socket, int level, int name, char* value, NativeSize*) {
  const CCall call(socket);
  if (!call || level != SOL_SOCKET || name != SO_ERROR) {
    return kOptionFailed;
  }
  const int error = call->connection == nullptr ? 0 : call->connection->TakeError();
  std::memcpy(value, &error, sizeof error);
  return 0;
}

int setsockopt(NativeSocket socket, int level, int name, const char* value, NativeSize) {
  const CCall call(socket);
  const bool isBroadcast = level == SOL_SOCKET && name == SO_BROADCAST;
  if (!call || !(isBroadcast || (level == IPPROTO_TCP && name == TCP_NODELAY && call->isStream))) {
    return kOptionFailed;
  }
  if (isBroadcast) {
    int on = 0;
    std::memcpy(&on, value, sizeof on);
    call->mayBroadcast = on != 0;
  }
  return 0;
}

int64_t send(NativeSocket socket, const char* data, NativeLength length, int) {
  const CCall call(socket);
  if (!call) {
    return -1;
  }
  if (call->isStream) {
    return call.Result(call->connection == nullptr ? -EPIPE : call->connection->Send(BytesOf(data, length)));
  }
  const bool hasPeer = call->peer.port != 0;
  const int error = hasPeer ? call.Network().SendDatagram(*call, BytesOf(data, length), call->peer) : EDESTADDRREQ;
  return call.Result(error == 0 ? static_cast<int64_t>(length) : -error);
}

int64_t recv(NativeSocket socket, char* data, NativeLength length, int) {
  const CCall call(socket);
  if (!call) {
    return -1;
  }
  if (!call->isStream) {
    sockaddr_in from{};
    return call.Result(TakeDatagram(*call, data, length, from));
  }
  const std::span<uint8_t> room(reinterpret_cast<uint8_t*>(data), length);
  return call.Result(call->connection == nullptr ? -ENOTCONN : call->connection->Receive(room));
}

int LastSocketError() {
  sim::CScheduler* const scheduler = sim::CScheduler::Current();
  return scheduler == nullptr ? ENETDOWN : scheduler->LastError();
}

bool IsInterrupted(int error) {
  return error == EINTR;
}

bool WouldBlock(int error) {
  return error == EAGAIN;
}

bool IsConnectPending(int error) {
  return error == EINPROGRESS || error == EINTR;
}

bool IsConnectionLost(int error) {
  constexpr std::array kLost{ECONNRESET,   ETIMEDOUT,   ECONNREFUSED, ECONNABORTED,
                             EHOSTUNREACH, ENETUNREACH, ENETDOWN,     ENETRESET};
  return std::find(kLost.begin(), kLost.end(), error) != kLost.end();
}

}  // namespace zelk
