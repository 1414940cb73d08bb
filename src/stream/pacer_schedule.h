// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "runtime/e1.h"

namespace zelk {

// When passes are due: every 20 ms of the millisecond counter from its start; late ones are made up for, each in turn.
// Pure. Thread: pacer.
class CPacerSchedule {
 public:
  static constexpr uint32_t kPeriodMs = kBlockMs;

  explicit CPacerSchedule(uint32_t now) : due(now) {}
  // True: do one pass now; lateMs is then by how much it is late. False: sleep waitMs first. The counter may wrap.
  bool PassDue(uint32_t now, uint32_t& waitMs, uint32_t* lateMs = nullptr);
  // The passes up to now would have found nothing to do: none of them is made up for.
  void Skip(uint32_t now) { due += (now - due) / kPeriodMs * kPeriodMs; }

 private:
  uint32_t due;  // when the pass after the last one began to count
};

}  // namespace zelk
