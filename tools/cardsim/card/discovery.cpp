// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/discovery.h"

#include <system_error>

#include "common/wire.h"

namespace cardsim {

CDiscovery::CDiscovery(IReactor& signallingReactor, ProbeHandler handler)
    : reactor(signallingReactor), onProbe(std::move(handler)) {}

void CDiscovery::Open(const std::string& broadcastAddress) {
  const auto open = [this](const SEndpoint& local) {
    socket = reactor.OpenDatagrams({.local = local}, [this](ByteView datagram, const SEndpoint& from) {
      if (IsProbe(datagram)) {
        onProbe(FormatIpv4(from.address));
      }
    });
  };
  const SEndpoint wished = ToEndpoint(broadcastAddress, kCardPort);
  try {
    open(wished);
  } catch (const std::system_error&) {
    // Systems that bind no broadcast address give broadcasts to the wildcard address.
    open({0, kCardPort});
  }
}

void CDiscovery::Close() {
  socket.reset();
}

}  // namespace cardsim
