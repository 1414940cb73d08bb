// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_pacer.h"

#include <algorithm>

namespace cardsim {
namespace {

// A stream that begins between two turns waits no longer than this for its first packet.
constexpr std::chrono::milliseconds kLongestSleep{5};

}  // namespace

CAudioPacer::CAudioPacer(IReactor& audioReactor) : reactor(audioReactor), timer(audioReactor.MakeTimer()) {}

void CAudioPacer::Start(std::vector<CAudioPort*> cardPorts) {
  reactor.Call([&] {
    ports = std::move(cardPorts);
    Turn();
  });
}

void CAudioPacer::Stop() {
  reactor.Call([&] {
    ports.clear();
    timer->Cancel();
  });
}

void CAudioPacer::Turn() {
  const auto now = reactor.Now();
  auto next = now + kLongestSleep;
  for (CAudioPort* port : ports) {
    next = std::min(next, port->SendDue(now).value_or(next));
  }
  if (ports.empty()) {
    return;
  }
  timer->At(next, [this] { Turn(); });
}

}  // namespace cardsim
