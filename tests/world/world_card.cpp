// SPDX-License-Identifier: GPL-2.0-only
#include "world/world_card.h"

#include <utility>

#include "world/world_reactor.h"
#include "world/world_sockets.h"

namespace world {

cardsim::SSimulatorConfig WorldCards(const std::vector<int>& trunksOfCards) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks(trunksOfCards, kFirstCardAddress);
  config.broadcast = kBroadcastAddress;
  return config;
}

std::unique_ptr<cardsim::CSimulator> MakeCards(zelk::sim::CWorld& world, cardsim::SSimulatorConfig config) {
  return std::make_unique<cardsim::CSimulator>(std::move(config), std::make_unique<CWorldReactor>(world),
                                               std::make_unique<CWorldReactor>(world));
}

}  // namespace world
