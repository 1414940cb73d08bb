// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "cardsim/base/config.h"
#include "cardsim/exchange/call.h"

namespace cardsim {

// A timeslot that carries calls: all but the one of the framing and the one of the D-channel.
bool IsVoiceTimeslot(int timeslot);

// Job: which call of a trunk has which timeslot. Thread: signalling; IsIdle from any. Nothing blocks or fails.
class CTimeslots {
 public:
  // False when another call has it.
  bool Occupy(int timeslot, const Call& call);
  // All that the call has.
  void Free(const Call& call);
  // A voice timeslot without a call, as of now.
  bool IsIdle(int timeslot) const;
  // The lowest of them, 0 when there is none.
  int FirstIdle() const;

 private:
  std::array<Call, kTimeslots> calls;
  std::atomic<std::uint32_t> busy{0};  // one bit for each entry of calls that is occupied
};

}  // namespace cardsim
