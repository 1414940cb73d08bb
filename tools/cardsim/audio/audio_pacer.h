// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <vector>

#include "cardsim/audio/audio_port.h"
#include "cardsim/base/reactor.h"

namespace cardsim {

// Job: wakes the audio thread whenever a packet of any card is due. Thread: audio; Start and Stop from any. The ports
// are the cards' and outlive it. Nothing fails.
class CAudioPacer {
 public:
  explicit CAudioPacer(IReactor& audioReactor);

  void Start(std::vector<CAudioPort*> cardPorts);
  void Stop();

 private:
  void Turn();

  IReactor& reactor;
  std::vector<CAudioPort*> ports;  // audio thread
  std::unique_ptr<ITimer> timer;   // audio thread
};

}  // namespace cardsim
