// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <asio.hpp>
#include <memory>

#include "cardsim/base/reactor.h"

namespace cardsim {

// The sockets and timers of CAsioReactor. An operation that is under way holds what it works on, so that the owner may
// go at any time. Both throw std::system_error when the address cannot be had.
std::unique_ptr<IDatagrams> OpenAsioDatagrams(asio::io_context& io, const SDatagramOptions& options,
                                              IDatagrams::Handler handler);
std::unique_ptr<IListener> ListenWithAsio(asio::io_context& io, const SEndpoint& local, IListener::Handler handler);

}  // namespace cardsim
