#pragma once

#include <cstdint>

#include "media/audio_controls.h"
#include "media/channel_rings.h"
#include "media/stop_flag.h"

namespace zelk {

// When passes are due: every 20 ms of the millisecond counter from its start; late ones are made up for, each in turn.
// Pure. Thread: pacer.
class CPacerSchedule {
 public:
  static constexpr uint32_t kPeriodMs = 20;

  explicit CPacerSchedule(uint32_t now) : due(now) {}
  // True: do one pass now. False: sleep waitMs first. The counter may wrap.
  bool PassDue(uint32_t now, uint32_t& waitMs);

 private:
  uint32_t due;  // when the pass after the last one began to count
};

// Moves blocks between a card's channels and its rings and looks for digits.
// Thread: pacer. Blocks only in its sleep; calls the hook. Allocates nothing.
class CAudioPacer {
 public:
  CAudioPacer(SAudioControls& cardControls, CCardRings& cardRings) : controls(cardControls), rings(cardRings) {}

  // The thread: until the flag is set.
  void Run(CStopFlag& stop);
  // Every position once; nothing without a hook. Ends early when the flag is set.
  void Pass(const CStopFlag& stop);

 private:
  void RefillTransmit(IMediaHook& hook, size_t position);
  void DeliverReceived(IMediaHook& hook, size_t position);

  SAudioControls& controls;
  CCardRings& rings;
};

}  // namespace zelk
