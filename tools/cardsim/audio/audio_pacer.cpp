// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_pacer.h"

#include <algorithm>
#include <asio.hpp>

namespace cardsim {
namespace {

// A stream that begins between two turns waits no longer than this for its first packet.
constexpr std::chrono::milliseconds kLongestSleep{5};

}  // namespace

struct CAudioPacer::STimer {
  explicit STimer(asio::io_context& io) : wake(io) {}
  asio::steady_timer wake;
};

CAudioPacer::CAudioPacer(CReactor& audioReactor)
    : reactor(audioReactor), timer(std::make_unique<STimer>(audioReactor.Io())) {}

CAudioPacer::~CAudioPacer() = default;

void CAudioPacer::Start(std::vector<CAudioPort*> cardPorts) {
  reactor.Call([&] {
    ports = std::move(cardPorts);
    Turn();
  });
}

void CAudioPacer::Stop() {
  reactor.Call([&] {
    ports.clear();
    timer->wake.cancel();
  });
}

void CAudioPacer::Turn() {
  const auto now = std::chrono::steady_clock::now();
  auto next = now + kLongestSleep;
  for (CAudioPort* port : ports) {
    next = std::min(next, port->SendDue(now).value_or(next));
  }
  if (ports.empty()) {
    return;
  }
  timer->wake.expires_at(next);
  timer->wake.async_wait([this](const asio::error_code& error) {
    if (!error) {
      Turn();
    }
  });
}

}  // namespace cardsim
