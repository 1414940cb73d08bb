// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "dsp/dtmf_batch.h"
#include "runtime/stop_flag.h"
#include "stream/audio_controls.h"
#include "stream/card_rings.h"
#include "stream/pacer_schedule.h"

namespace zelk {

// Moves blocks between a card's channels and its rings and looks for digits. A pass goes position by position; only the
// digits of the blocks that wait when it begins are looked for first, in all of them at once.
// Thread: pacer. Blocks only in its sleep; calls the hook. Allocates nothing. A stop that comes while the hook is
// inside its call ends the pass there: nothing more is asked of it, and the block at hand goes nowhere.
class CAudioPacer {
 public:
  CAudioPacer(SAudioControls& cardControls, CCardRings& cardRings) : controls(cardControls), rings(cardRings) {}

  // The thread: until the flag is set.
  void Run(CStopFlag& stop);
  // One turn of it at this time of the millisecond counter: a pass if one is due, else the milliseconds until then.
  uint32_t Turn(CPacerSchedule& schedule, uint32_t now, const CStopFlag& stop);
  // Every position once; nothing without a hook. Ends early when the flag is set.
  void Pass(const CStopFlag& stop);
  // Whether the last pass had a hook and found no block to fill or to deliver, with the moves of before.
  bool IsAtRest() const { return atRest; }

 private:
  void FindDigitsOfAll();
  void Foresee(IMediaHook& hook, size_t position);
  // Each is false when the stop flag was set meanwhile.
  bool RefillTransmit(IMediaHook& hook, size_t position, const CStopFlag& stop, CFillRegister::CEntry& entry);
  bool DeliverReceived(IMediaHook& hook, size_t position, const CStopFlag& stop);
  bool ReportDigits(IMediaHook& hook, size_t position, const CStopFlag& stop);
  void Fill(IMediaHook& hook, size_t position, CFillRegister::CEntry& entry);

  SAudioControls& controls;
  CCardRings& rings;
  SBlockFill fill;
  uint32_t movesBefore = 0;  // the last pass
  bool atRest = false;
  std::array<SDigitJob, kMaxPositions> jobs{};
  std::array<bool, kMaxPositions> isSearched{};  // the digits of the position's oldest block are found
};

}  // namespace zelk
