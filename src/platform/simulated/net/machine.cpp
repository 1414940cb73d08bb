// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/machine.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "platform/simulated/world.h"

namespace zelk::sim {

namespace {

constexpr SIpv4Address kEveryone = Address(255, 255, 255, 255);
constexpr SIpv4Address kMask24 = Address(255, 255, 255, 0);
constexpr SIpv4Address kMask8 = Address(255, 0, 0, 0);

bool IsInside(SIpv4Address address, const SAdapter& adapter) {
  return ((address.networkOrder ^ adapter.address.networkOrder) & adapter.mask.networkOrder) == 0;
}

}  // namespace

Datagram CDatagramPool::Make(std::span<const uint8_t> data, SIpv4Endpoint from, SIpv4Endpoint to) {
  if (unused.empty()) {
    all.push_back(std::make_unique<SDatagram>());
    unused.push_back(all.back().get());
  }
  SDatagram& made = *unused.back();
  unused.pop_back();
  made.data.assign(data.begin(), data.end());
  made.from = from;
  made.to = to;
  made.isBroadcast = false;
  return Hold(made);
}

Datagram CDatagramPool::Copy(const SDatagram& datagram) {
  Datagram copy = Make(datagram.data, datagram.from, datagram.to);
  copy->isBroadcast = datagram.isBroadcast;
  return copy;
}

CMachine::CMachine(CWorld& owner) : adapters{{kLibraryAddress, kMask24}, {kLoopback, kMask8}}, world(owner) {}

bool CMachine::IsOwn(SIpv4Address address) const {
  const bool isLoopback = (address.networkOrder & kMask8.networkOrder) == Address(127, 0, 0, 0).networkOrder;
  return isLoopback || std::any_of(adapters.begin(), adapters.end(),
                                   [address](const SAdapter& adapter) { return adapter.address == address; });
}

const SAdapter* CMachine::BroadcastAdapter(SIpv4Address address) const {
  const auto found = std::find_if(adapters.begin(), adapters.end(), [address](const SAdapter& adapter) {
    return address == kEveryone || address.networkOrder == (adapter.address.networkOrder | ~adapter.mask.networkOrder);
  });
  return found == adapters.end() ? nullptr : &*found;
}

SIpv4Address CMachine::SourceFor(SIpv4Address destination) const {
  if (IsOwn(destination)) {
    return destination;
  }
  const auto found = std::find_if(adapters.begin(), adapters.end(),
                                  [destination](const SAdapter& adapter) { return IsInside(destination, adapter); });
  if (found != adapters.end()) {
    return found->address;
  }
  return adapters.empty() ? kLoopback : adapters.front().address;
}

int32_t CMachine::Open(bool isStream) {
  auto socket = std::make_unique<SSocket>();
  socket->isStream = isStream;
  sockets.push_back(std::move(socket));
  return static_cast<int32_t>(sockets.size() - 1);
}

SSocket* CMachine::Find(int32_t number) {
  const auto index = static_cast<size_t>(number);
  if (number < 0 || index >= sockets.size() || sockets[index] == nullptr) {
    world.Fail("a call on socket " + std::to_string(number) + ", which is closed");
    return nullptr;
  }
  return sockets[index].get();
}

void CMachine::Close(int32_t number) {
  SSocket* const socket = Find(number);
  if (socket != nullptr && socket->inside > 0) {
    world.Fail("socket " + std::to_string(number) + " is closed while a task is in a call on it");
  }
  if (socket != nullptr) {
    sockets[static_cast<size_t>(number)] = nullptr;
  }
}

size_t CMachine::OpenSockets() const {
  return static_cast<size_t>(
      std::count_if(sockets.begin(), sockets.end(), [](const auto& socket) { return socket != nullptr; }));
}

bool CMachine::Collides(const SSocket& one, const SSocket& other) const {
  const bool sameAddress = one.local.address == other.local.address || one.local.address == kAnyAddress ||
                           other.local.address == kAnyAddress;
  return &one != &other && one.isStream == other.isStream && other.isBound && one.local.port == other.local.port &&
         sameAddress && !(one.mayShare && other.mayShare);
}

bool CMachine::IsPortFree(const SSocket& socket) const {
  return taken.count(KeyOf(socket.local, socket.isStream)) == 0 &&
         taken.count(KeyOf({kAnyAddress, socket.local.port}, socket.isStream)) == 0 &&
         std::none_of(sockets.begin(), sockets.end(),
                      [&](const auto& other) { return other != nullptr && Collides(socket, *other); });
}

int CMachine::Bind(SSocket& socket, SIpv4Endpoint local) {
  if (socket.isBound) {
    return EINVAL;
  }
  if (local.address != kAnyAddress && !IsOwn(local.address) && BroadcastAdapter(local.address) == nullptr) {
    return EADDRNOTAVAIL;
  }
  socket.local = local;
  const int tries = local.port == 0 ? 20'000 : 1;
  for (int i = 0; i < tries; ++i) {
    if (local.port == 0) {
      socket.local.port = nextPort;
      nextPort = nextPort == 59'999 ? 40'000 : static_cast<uint16_t>(nextPort + 1);
    }
    if (IsPortFree(socket)) {
      socket.isBound = true;
      return 0;
    }
  }
  socket.local = {};
  return EADDRINUSE;
}

// What the system does for a socket that sends before it is bound.
void CMachine::BindAnyhow(SSocket& socket, SIpv4Address destination) {
  if (!socket.isBound) {
    Bind(socket, {socket.isStream ? SourceFor(destination) : kAnyAddress, 0});
  }
}

void CMachine::Take(SSocket& socket, Datagram datagram) {
  if (socket.waitingBytes + datagram->data.size() > static_cast<size_t>(socket.receiveBytes)) {
    return;
  }
  socket.waitingBytes += datagram->data.size();
  socket.datagrams.push_back(std::move(datagram));
  world.Scheduler().Wake(&socket);
}

// A specific bind goes before a wildcard, a later one before an earlier one.
SSocket* CMachine::Receiver(SIpv4Endpoint to) {
  SSocket* found = nullptr;
  for (const std::unique_ptr<SSocket>& socket : sockets) {
    if (socket == nullptr || socket->isStream || !socket->isBound || socket->local.port != to.port) {
      continue;
    }
    const bool isSpecific = socket->local.address == to.address;
    const bool isWildcard = socket->local.address == kAnyAddress;
    if (isSpecific || (isWildcard && (found == nullptr || found->local.address == kAnyAddress))) {
      found = socket.get();
    }
  }
  return found;
}

void CMachine::Deliver(Datagram datagram) {
  const SIpv4Endpoint to = datagram->to;
  if (!datagram->isBroadcast) {
    SSocket* const socket = Receiver(to);
    const bool isFromPeer =
        socket != nullptr && (socket->peer.port == 0 || (socket->peer.port == datagram->from.port &&
                                                         socket->peer.address == datagram->from.address));
    if (isFromPeer) {
      Take(*socket, std::move(datagram));
    }
    return;
  }
  for (const std::unique_ptr<SSocket>& socket : sockets) {
    if (socket != nullptr && !socket->isStream && socket->isBound && socket->local.port == to.port &&
        (socket->local.address == kAnyAddress || socket->local.address == to.address)) {
      Take(*socket, pool.Copy(*datagram));
    }
  }
}

}  // namespace zelk::sim
