// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cardsim/card/simulator.h"
#include "platform/simulated/world.h"

namespace world {

// Where the first of a world's cards is; the next ones follow it. The library's machine is on the same network.
inline constexpr const char* kFirstCardAddress = "10.1.0.11";

// Cards of so many trunks each, as CSimulator takes them, at the addresses of a world.
cardsim::SSimulatorConfig WorldCards(const std::vector<int>& trunksOfCards);

// The simulated cards with the exchange behind them, in a world. What waits in them (WaitState and the like) must not
// be used there: nothing goes on while a task waits in anything but the world's own way.
// Thread: tasks and acts of the world, also before its run. The world outlives it.
std::unique_ptr<cardsim::CSimulator> MakeCards(zelk::sim::CWorld& world, cardsim::SSimulatorConfig config);

}  // namespace world
