// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/adapters.h"
#include "platform/ipv4_address.h"
#include "platform/simulated/network.h"

namespace zelk::sim {

class CConnection;
struct SLine;

using Bytes = std::vector<uint8_t>;

struct SDatagram {
  Bytes data;
  SIpv4Endpoint from;
  SIpv4Endpoint to;
  bool isBroadcast = false;  // for every socket of the library's machine that hears it
};

// Where datagrams go back to: hundreds of thousands are under way in a world, a few at a time.
class CDatagramPool {
 public:
  struct SGiveBack {
    CDatagramPool* pool;
    void operator()(SDatagram* datagram) const { pool->unused.push_back(datagram); }
  };
  using Held = std::unique_ptr<SDatagram, SGiveBack>;

  Held Make(std::span<const uint8_t> data, SIpv4Endpoint from, SIpv4Endpoint to);
  Held Copy(const SDatagram& datagram);
  // What somebody has let go of by release(), and kept the address of.
  Held Hold(SDatagram& datagram) { return {&datagram, {this}}; }

 private:
  std::vector<std::unique_ptr<SDatagram>> all;
  std::vector<SDatagram*> unused;
};
using Datagram = CDatagramPool::Held;

// A socket of the library. Tasks wait for its address.
struct SSocket {
  bool isStream = false;
  bool isBound = false;
  bool mayShare = false;
  bool mayBroadcast = false;
  bool isWoken = false;
  int inside = 0;  // tasks in a wait on it
  int receiveBytes = 212'992;
  int sendBytes = 212'992;
  SIpv4Endpoint local;
  SIpv4Endpoint peer;  // of a datagram socket that was connected

  std::deque<Datagram> datagrams;
  size_t waitingBytes = 0;
  SLine* line = nullptr;  // the one that its last datagram took

  std::shared_ptr<CConnection> connection;
};

// The library's machine: its adapters, its ports and the sockets bound to them.
// Thread: tasks and acts of the world.
class CMachine {
 public:
  explicit CMachine(CWorld& owner);

  CDatagramPool pool;  // of the whole network; before the sockets, which hold some
  std::vector<SAdapter> adapters;
  int listed = kAdaptersListed;
  int bufferLimit = 0;

  bool IsOwn(SIpv4Address address) const;
  // The adapter whose broadcast address this is; null where it is none.
  const SAdapter* BroadcastAdapter(SIpv4Address address) const;
  // The address that messages to this one leave from.
  SIpv4Address SourceFor(SIpv4Address destination) const;

  int32_t Open(bool isStream);
  // Null, and the end of the run, when it is closed: somebody kept a number that is another's elsewhere.
  SSocket* Find(int32_t number);
  void Close(int32_t number);
  size_t OpenSockets() const;

  // 0 or an error number.
  int Bind(SSocket& socket, SIpv4Endpoint local);
  void BindAnyhow(SSocket& socket, SIpv4Address destination);
  void TakePort(SIpv4Endpoint local, bool isStream) { taken.insert(KeyOf(local, isStream)); }
  void FreePort(SIpv4Endpoint local, bool isStream) { taken.erase(KeyOf(local, isStream)); }

  // A datagram arrives at one of the machine's addresses, or at everyone's.
  void Deliver(Datagram datagram);

 private:
  using PortKey = std::pair<uint64_t, bool>;
  static PortKey KeyOf(SIpv4Endpoint local, bool isStream) {
    return {uint64_t{local.address.networkOrder} << 16 | local.port, isStream};
  }
  bool Collides(const SSocket& one, const SSocket& other) const;
  bool IsPortFree(const SSocket& socket) const;
  void Take(SSocket& socket, Datagram datagram);
  SSocket* Receiver(SIpv4Endpoint to);

  CWorld& world;
  std::vector<std::unique_ptr<SSocket>> sockets;  // by number; null once closed
  std::set<PortKey> taken;
  uint16_t nextPort = 40'000;
};

}  // namespace zelk::sim
