// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "native/event.h"

namespace zelk {

// A manual-reset event: once set it releases every wait until it is reset.
// Thread: any. Wait and WaitFor block; Set on an event that is already set costs one atomic read.
// What a thread wrote before Set is seen by a thread that a wait released.
class CEvent {
 public:
  void Set();
  void Reset();
  void Wait();
  // False when the time ran out before the event was set.
  bool WaitFor(uint32_t timeoutMs);

 private:
  SNativeEvent native;
};

}  // namespace zelk
