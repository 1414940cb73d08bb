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
  Datagram datagram = machine.pool.Make(data, {source, from.local.port}, to);
  Show({SWireMessage::EKind::kDatagram, datagram->from, to, data});
  if (everyone != nullptr) {
    BroadcastToOutside(*datagram, *everyone, true);
  } else {
    SendOver(line, std::move(datagram));
  }
  return 0;
}

void CNetwork::CImpl::SendOver(SLine& line, Datagram datagram) {
  const CLines::SArrivals arrivals = lines.Send(line, datagram->data.size());
  if (arrivals.count == 2) {
    ArriveAt(arrivals.atUs[1], machine.pool.Copy(*datagram));
  }
  if (arrivals.count > 0) {
    ArriveAt(arrivals.atUs[0], std::move(datagram));
  }
}

// Two pointers fit into an act without memory of its own.
void CNetwork::CImpl::ArriveAt(int64_t timeUs, Datagram datagram) {
  world.At(timeUs, [this, sent = datagram.release()] { Arrive(machine.pool.Hold(*sent)); });
}

void CNetwork::CImpl::Arrive(Datagram datagram) {
  const COutsideDatagrams* const endpoint = datagram->isBroadcast ? nullptr : FindDatagrams(datagram->to);
  if (endpoint != nullptr) {
    endpoint->Take(*datagram);
  } else if (datagram->isBroadcast || machine.IsOwn(datagram->to.address)) {
    if (!machine.IsOwn(datagram->from.address)) {
      Show({SWireMessage::EKind::kDatagram, datagram->from, datagram->to, datagram->data});
    }
    machine.Deliver(std::move(datagram));
  }
}

// Each machine hears it over its own line. The sender's machine does too, when it is the library's.
void CNetwork::CImpl::BroadcastToOutside(const SDatagram& datagram, const SAdapter& adapter, bool isFromLibrary) {
  for (const COutsideDatagrams* endpoint : endpoints) {
    const SIpv4Endpoint at = endpoint->Local();
    const bool isSender = !isFromLibrary && SamePlace(at, datagram.from);
    if (at.port != datagram.to.port || !IsInside(at.address, adapter) || isSender) {
      continue;
    }
    SendOver(lines.ToMachine(at.address), machine.pool.Make(datagram.data, datagram.from, at));
  }
  Datagram heard = machine.pool.Copy(datagram);
  heard->isBroadcast = true;
  SendOver(lines.ToLibrary(isFromLibrary ? adapter.address : datagram.from.address), std::move(heard));
}

void CNetwork::CImpl::SendFromOutside(SIpv4Endpoint from, std::span<const uint8_t> data, SIpv4Endpoint to) {
  const SAdapter* const everyone = machine.BroadcastAdapter(to.address);
  world.Scheduler().Trace().AddBytes(data.data(), data.size());
  Datagram datagram = machine.pool.Make(data, from, to);
  if (everyone != nullptr) {
    BroadcastToOutside(*datagram, *everyone, false);
  } else {
    SendOver(lines.ToLibrary(from.address), std::move(datagram));
  }
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
