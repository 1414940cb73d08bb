// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/event.h"
#include "runtime/stop_flag.h"

namespace zelk {

// Lets a pacer sleep on while its card has no audio: a pass that found nothing to do is followed by others that do,
// until the receive thread moves a block. Thread: Wake any; Moves and WaitForMove pacer. WaitForMove blocks up to
// kLongestMs; Wake never does, and costs a thread that finds nobody asleep one atomic operation.
class CPacerRest {
 public:
  static constexpr uint32_t kLongestMs = 2000;

  // A block has moved, or the pacer shall end.
  void Wake() {
    ++moves;
    if (resting)
      wake.Set();
  }
  uint32_t Moves() const { return moves; }
  // Returns at once when something has moved since there were so many moves.
  void WaitForMove(uint32_t seenMoves, const CStopFlag& stop) {
    wake.Reset();
    // In this order, and Wake's in its own: either the move is seen here, or the sleeper there.
    resting = true;
    if (moves == seenMoves && !stop.IsSet())
      wake.WaitFor(kLongestMs);
    resting = false;
  }

 private:
  std::atomic<uint32_t> moves{0};
  std::atomic<bool> resting{false};
  CEvent wake;
};

}  // namespace zelk
