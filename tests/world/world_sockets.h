// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>

#include "cardsim/base/reactor.h"
#include "platform/simulated/world.h"

namespace world {

inline constexpr const char* kBroadcastAddress = "10.1.0.255";

// The sockets of CWorldReactor: endpoints of a world's other machines. Both throw std::system_error when the port is
// taken. Thread: tasks and acts of the world.
std::unique_ptr<cardsim::IDatagrams> OpenWorldDatagrams(zelk::sim::CWorld& world, const cardsim::SEndpoint& local,
                                                        cardsim::IDatagrams::Handler handler);
std::unique_ptr<cardsim::IListener> ListenInWorld(zelk::sim::CWorld& world, const cardsim::SEndpoint& local,
                                                  cardsim::IListener::Handler handler);

}  // namespace world
