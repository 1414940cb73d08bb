// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <set>
#include <span>
#include <vector>

#include "platform/simulated/net/connection.h"
#include "platform/simulated/net/lines.h"
#include "platform/simulated/net/machine.h"
#include "platform/simulated/network.h"

namespace zelk::sim {

class COutsideDatagrams;
class COutsideListener;

// What lies between the library's sockets and the outside's.
// Thread: tasks and acts of the world.
class CNetwork::CImpl {
 public:
  explicit CImpl(CWorld& owner) : world(owner), lines(owner), machine(owner) {}
  ~CImpl();
  CImpl(const CImpl&) = delete;
  CImpl& operator=(const CImpl&) = delete;

  // For the library's sockets. 0 or an error number.
  int SendDatagram(SSocket& from, std::span<const uint8_t> data, SIpv4Endpoint to);
  int Connect(SSocket& socket, SIpv4Endpoint remote);

  // For the outside.
  void SendFromOutside(SIpv4Endpoint from, std::span<const uint8_t> data, SIpv4Endpoint to);
  COutsideDatagrams* FindDatagrams(SIpv4Endpoint at) const;
  COutsideListener* FindListener(SIpv4Endpoint at) const;
  SIpv4Endpoint WithPort(SIpv4Endpoint local);

  void Show(const SWireMessage& message) const {
    if (tap) {
      tap(message);
    }
  }

  CWorld& world;
  CLines lines;
  CMachine machine;
  CNetwork::Tap tap;
  std::vector<COutsideDatagrams*> endpoints;
  std::vector<COutsideListener*> listeners;
  std::set<uint32_t> knownMachines;

 private:
  void BroadcastToOutside(const SDatagram& datagram, const SAdapter& adapter, bool isFromLibrary);
  void SendOver(SLine& line, Datagram datagram);
  void ArriveAt(int64_t timeUs, Datagram datagram);
  void Arrive(Datagram datagram);
  CConnection::EAnswer Answer(CConnection& connection);

  std::vector<std::weak_ptr<CConnection>> connections;
  uint16_t nextPort = 30'000;
};

// One of the outside's datagram sockets.
class COutsideDatagrams : public CDatagrams {
 public:
  COutsideDatagrams(CNetwork::CImpl& owner, SIpv4Endpoint at, CNetwork::DatagramHandler toCall);
  ~COutsideDatagrams() override;
  COutsideDatagrams(const COutsideDatagrams&) = delete;
  COutsideDatagrams& operator=(const COutsideDatagrams&) = delete;

  SIpv4Endpoint Local() const override { return local; }
  void SendTo(std::span<const uint8_t> data, SIpv4Endpoint remote) override;
  void Take(const SDatagram& datagram) const;

 private:
  CNetwork::CImpl& network;
  const SIpv4Endpoint local;
  // Held by whoever calls it, so that it may destroy its socket.
  const std::shared_ptr<const CNetwork::DatagramHandler> handler;
};

class COutsideListener : public CListener {
 public:
  COutsideListener(CNetwork::CImpl& owner, SIpv4Endpoint at, CNetwork::AcceptHandler toCall);
  ~COutsideListener() override;
  COutsideListener(const COutsideListener&) = delete;
  COutsideListener& operator=(const COutsideListener&) = delete;

  void SetAnswer(EAnswer toGive) override { answer = toGive; }
  EAnswer Answer() const { return answer; }
  SIpv4Endpoint Local() const override { return local; }
  std::shared_ptr<const CNetwork::AcceptHandler> Handler() const { return handler; }

 private:
  CNetwork::CImpl& network;
  const SIpv4Endpoint local;
  EAnswer answer = EAnswer::kAccept;
  const std::shared_ptr<const CNetwork::AcceptHandler> handler;
};

}  // namespace zelk::sim
