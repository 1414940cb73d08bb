// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/network.h"

#include <utility>

#include "platform/simulated/net/fabric.h"
#include "platform/simulated/world.h"

namespace zelk::sim {

CNetwork::CNetwork(CWorld& owner) : impl(std::make_unique<CImpl>(owner)) {}

CNetwork::~CNetwork() = default;

void CNetwork::SetAdapters(std::vector<SAdapter> adapters, int result) {
  impl->machine.adapters = std::move(adapters);
  impl->machine.listed = result;
}

std::unique_ptr<CDatagrams> CNetwork::OpenDatagrams(SIpv4Endpoint local, DatagramHandler handler) {
  impl->knownMachines.insert(local.address.networkOrder);
  const SIpv4Endpoint at = impl->WithPort(local);
  if (impl->FindDatagrams(at) != nullptr) {
    return nullptr;
  }
  return std::make_unique<COutsideDatagrams>(*impl, at, std::move(handler));
}

std::unique_ptr<CListener> CNetwork::Listen(SIpv4Endpoint local, AcceptHandler handler) {
  impl->knownMachines.insert(local.address.networkOrder);
  const SIpv4Endpoint at = impl->WithPort(local);
  if (impl->FindListener(at) != nullptr) {
    return nullptr;
  }
  return std::make_unique<COutsideListener>(*impl, at, std::move(handler));
}

void CNetwork::SetLink(SIpv4Address machine, const SLink& link) {
  impl->lines.Set(machine, link, link);
}

void CNetwork::SetLink(SIpv4Address machine, const SLink& toMachine, const SLink& toLibrary) {
  impl->lines.Set(machine, toMachine, toLibrary);
}

void CNetwork::SetDefaultLink(const SLink& link) {
  impl->lines.SetDefault(link);
}

void CNetwork::SetTap(Tap tap) {
  impl->tap = std::move(tap);
}

void CNetwork::TakePort(SIpv4Endpoint local, bool isStream) {
  impl->machine.TakePort(local, isStream);
}

void CNetwork::FreePort(SIpv4Endpoint local, bool isStream) {
  impl->machine.FreePort(local, isStream);
}

void CNetwork::SetBufferLimit(int bytes) {
  impl->machine.bufferLimit = bytes;
}

size_t CNetwork::OpenSockets() const {
  return impl->machine.OpenSockets();
}

}  // namespace zelk::sim
