// SPDX-License-Identifier: GPL-2.0-only
#include "platform/adapters.h"

#include "platform/simulated/net/fabric.h"
#include "platform/simulated/world.h"

namespace zelk {

int ListAdapters(std::vector<SAdapter>& adapters) {
  adapters.clear();
  sim::CWorld* const world = sim::CWorld::Current();
  if (world == nullptr) {
    return kAdaptersNotRead;
  }
  const sim::CMachine& machine = world->Network().Impl().machine;
  if (machine.listed == kAdaptersListed) {
    adapters = machine.adapters;
  }
  return machine.listed;
}

}  // namespace zelk
