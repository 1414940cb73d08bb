// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dsp/echo_canceller.h"
#include "stream/audio_controls.h"
#include "stream/packet_sender.h"

namespace zelk {

// The echo cancellers of a card, 32 a trunk, made anew by the opener while packets may already be processed: a new set
// is handed over and used from the next packet on, the old one is handed back and freed by the opener.
// Thread: Configure the opener; Process receive, without a lock. Owns all sets.
class CEchoBank {
 public:
  CEchoBank() = default;
  ~CEchoBank();
  CEchoBank(const CEchoBank&) = delete;
  CEchoBank& operator=(const CEchoBank&) = delete;

  // Without memory the trunk's positions that got no canceller pass their sound unchanged.
  void Configure(uint32_t trunk, int32_t tailMs);
  // Cleans, in place, the positions of every trunk whose switch is on.
  void Process(uint8_t* samples, size_t frames, size_t trunks, const SSentPacket& sent, const SAudioControls& controls);

 private:
  struct SSet {
    CEchoCanceller::Memory memory;
    std::array<std::unique_ptr<CEchoCanceller>, kTimeslotsPerTrunk> cancellers;  // which work on that
    SSet* nextRetired = nullptr;
  };
  struct STrunk {
    std::atomic<SSet*> offered{nullptr};  // opener to receive thread
    std::atomic<SSet*> retired{nullptr};  // receive thread to opener, a list
    SSet* active = nullptr;               // receive thread's
  };

  static void Adopt(STrunk& trunk);
  static void FreeRetired(STrunk& trunk);

  std::array<STrunk, kMaxTrunks> trunkSets;
};

}  // namespace zelk
