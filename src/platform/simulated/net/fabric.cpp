// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/fabric.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/simulated/world.h"

namespace zelk::sim {

namespace {

constexpr size_t kLongestDatagram = 65'507;

bool SamePlace(SIpv4Endpoint one, SIpv4Endpoint other) {
  return one.address == other.address && one.port == other.port;
}

bool IsInside(SIpv4Address address, const SAdapter& adapter) {
  return ((address.networkOrder ^ adapter.address.networkOrder) & adapter.mask.networkOrder) == 0;
}

}  // namespace

CNetwork::CImpl::~CImpl() {
  for (const std::weak_ptr<CConnection>& weak : connections) {
    if (const std::shared_ptr<CConnection> connection = weak.lock()) {
      connection->DropHandlers();
    }
  }
}

COutsideDatagrams* CNetwork::CImpl::FindDatagrams(SIpv4Endpoint at) const {
  const auto found = std::find_if(endpoints.begin(), endpoints.end(),
                                  [at](const COutsideDatagrams* one) { return SamePlace(one->Local(), at); });
  return found == endpoints.end() ? nullptr : *found;
}

COutsideListener* CNetwork::CImpl::FindListener(SIpv4Endpoint at) const {
  const auto found = std::find_if(listeners.begin(), listeners.end(),
                                  [at](const COutsideListener* one) { return SamePlace(one->Local(), at); });
  return found == listeners.end() ? nullptr : *found;
}

SIpv4Endpoint CNetwork::CImpl::WithPort(SIpv4Endpoint local) {
  while (local.port == 0) {
    const SIpv4Endpoint tried{local.address, nextPort++};
    if (FindDatagrams(tried) == nullptr && FindListener(tried) == nullptr) {
      return tried;
    }
  }
  return local;
}

int CNetwork::CImpl::SendDatagram(SSocket& from, std::span<const uint8_t> data, SIpv4Endpoint to) {
  const SAdapter* const everyone = machine.BroadcastAdapter(to.address);
  if (data.size() > kLongestDatagram) {
    return EMSGSIZE;
  }
  if (everyone != nullptr && !from.mayBroadcast) {
    return EACCES;
  }
  machine.BindAnyhow(from, to.address);
  SLine& line = lines.ToMachine(to.address);
  from.line = &line;
  const size_t backlog = line.BacklogBytes(world.NowUs());
  if (backlog != 0 && backlog + data.size() > static_cast<size_t>(from.sendBytes)) {
    return EAGAIN;
  }
  world.Scheduler().Trace().AddBytes(data.data(), data.size());
  const bool isAnywhere = from.local.address == kAnyAddress;
  const SIpv4Address source = !isAnywhere           ? from.local.address
                              : everyone != nullptr ? everyone->address
                                                    : machine.SourceFor(to.address);
  SDatagram datagram{Bytes(data.begin(), data.end()), {source, from.local.port}};
  if (everyone != nullptr) {
    BroadcastToOutside(datagram, to, *everyone, &from);
    return 0;
  }
  lines.Datagram(line, data.size(), [this, to, sent = std::make_shared<SDatagram>(std::move(datagram))] {
    COutsideDatagrams* const endpoint = FindDatagrams(to);
    if (machine.IsOwn(to.address) && endpoint == nullptr) {
      machine.Deliver(*sent, to, false);
    } else if (endpoint != nullptr) {
      endpoint->Take(*sent);
    }
  });
  return 0;
}

// Each machine hears it over its own line. The sender's machine does too.
void CNetwork::CImpl::BroadcastToOutside(const SDatagram& datagram, SIpv4Endpoint to, const SAdapter& adapter,
                                         SSocket* sender) {
  const auto shared = std::make_shared<const SDatagram>(datagram);
  for (const COutsideDatagrams* endpoint : endpoints) {
    const SIpv4Endpoint at = endpoint->Local();
    const bool isSender = sender == nullptr && SamePlace(at, datagram.from);
    if (at.port != to.port || !IsInside(at.address, adapter) || isSender) {
      continue;
    }
    SLine& line = lines.ToMachine(at.address);
    lines.Datagram(line, datagram.data.size(), [this, at, shared] {
      if (const COutsideDatagrams* const receiver = FindDatagrams(at)) {
        receiver->Take(*shared);
      }
    });
  }
  if (sender != nullptr) {
    lines.Datagram(lines.ToLibrary(adapter.address), datagram.data.size(),
                   [this, to, shared] { machine.Deliver(*shared, to, true); });
  }
}

void CNetwork::CImpl::SendFromOutside(SIpv4Endpoint from, std::span<const uint8_t> data, SIpv4Endpoint to) {
  const auto sent = std::make_shared<const SDatagram>(SDatagram{Bytes(data.begin(), data.end()), from});
  const SAdapter* const everyone = machine.BroadcastAdapter(to.address);
  world.Scheduler().Trace().AddBytes(data.data(), data.size());
  if (everyone != nullptr) {
    BroadcastToOutside(*sent, to, *everyone, nullptr);
  }
  if (everyone == nullptr && !machine.IsOwn(to.address)) {
    lines.Datagram(lines.ToLibrary(from.address), data.size(), [this, to, sent] {
      if (const COutsideDatagrams* const endpoint = FindDatagrams(to)) {
        endpoint->Take(*sent);
      }
    });
    return;
  }
  const bool isBroadcast = everyone != nullptr;
  lines.Datagram(lines.ToLibrary(from.address), data.size(),
                 [this, to, sent, isBroadcast] { machine.Deliver(*sent, to, isBroadcast); });
}

int CNetwork::CImpl::Connect(SSocket& socket, SIpv4Endpoint remote) {
  if (!socket.isStream) {
    machine.BindAnyhow(socket, remote.address);
    socket.peer = remote;
    return 0;
  }
  if (socket.connection != nullptr) {
    return socket.connection->IsUnderWay() ? EALREADY : EISCONN;
  }
  machine.BindAnyhow(socket, remote.address);
  socket.connection = std::make_shared<CConnection>(world, lines, socket, remote,
                                                    [this](CConnection& connection) { return Answer(connection); });
  std::erase_if(connections, [](const std::weak_ptr<CConnection>& weak) { return weak.expired(); });
  connections.push_back(socket.connection);
  socket.connection->Connect();
  return EINPROGRESS;
}

CConnection::EAnswer CNetwork::CImpl::Answer(CConnection& connection) {
  const SIpv4Endpoint at = connection.Local();
  const COutsideListener* const listener = FindListener(at);
  if (listener == nullptr) {
    const bool isThere = machine.IsOwn(at.address) || knownMachines.count(at.address.networkOrder) != 0;
    return isThere ? CConnection::EAnswer::kRefuse : CConnection::EAnswer::kSilence;
  }
  if (listener->Answer() == CListener::EAnswer::kAccept) {
    const std::shared_ptr<const CNetwork::AcceptHandler> handler = listener->Handler();
    connection.Accept();
    (*handler)(connection.shared_from_this());
    return CConnection::EAnswer::kAccept;
  }
  return listener->Answer() == CListener::EAnswer::kRefuse ? CConnection::EAnswer::kRefuse
                                                           : CConnection::EAnswer::kSilence;
}

COutsideDatagrams::COutsideDatagrams(CNetwork::CImpl& owner, SIpv4Endpoint at, CNetwork::DatagramHandler toCall)
    : network(owner), local(at), handler(std::make_shared<const CNetwork::DatagramHandler>(std::move(toCall))) {
  network.endpoints.push_back(this);
}

COutsideDatagrams::~COutsideDatagrams() {
  std::erase(network.endpoints, this);
}

void COutsideDatagrams::SendTo(std::span<const uint8_t> data, SIpv4Endpoint remote) {
  network.SendFromOutside(local, data, remote);
}

void COutsideDatagrams::Take(const SDatagram& datagram) const {
  const std::shared_ptr<const CNetwork::DatagramHandler> kept = handler;
  network.world.Scheduler().Trace().Add(datagram.data.size());
  (*kept)(datagram.data, datagram.from);
}

COutsideListener::COutsideListener(CNetwork::CImpl& owner, SIpv4Endpoint at, CNetwork::AcceptHandler toCall)
    : network(owner), local(at), handler(std::make_shared<const CNetwork::AcceptHandler>(std::move(toCall))) {
  network.listeners.push_back(this);
}

COutsideListener::~COutsideListener() {
  std::erase(network.listeners, this);
}

}  // namespace zelk::sim
