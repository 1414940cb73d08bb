#pragma once

#include <cstddef>
#include <cstdint>

#include "media/audio_controls.h"
#include "media/card_rings.h"
#include "media/pacer_schedule.h"
#include "media/stop_flag.h"

namespace zelk {

// Moves blocks between a card's channels and its rings and looks for digits.
// Thread: pacer. Blocks only in its sleep; calls the hook. Allocates nothing.
class CAudioPacer {
 public:
  CAudioPacer(SAudioControls& cardControls, CCardRings& cardRings) : controls(cardControls), rings(cardRings) {}

  // The thread: until the flag is set.
  void Run(CStopFlag& stop);
  // One turn of it at this time of the millisecond counter: a pass if one is due, else the milliseconds until then.
  uint32_t Turn(CPacerSchedule& schedule, uint32_t now, const CStopFlag& stop);
  // Every position once; nothing without a hook. Ends early when the flag is set.
  void Pass(const CStopFlag& stop);

 private:
  void RefillTransmit(IMediaHook& hook, size_t position);
  void DeliverReceived(IMediaHook& hook, size_t position);

  SAudioControls& controls;
  CCardRings& rings;
};

}  // namespace zelk
