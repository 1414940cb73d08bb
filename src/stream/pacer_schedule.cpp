// SPDX-License-Identifier: GPL-2.0-only
#include "stream/pacer_schedule.h"

namespace zelk {

bool CPacerSchedule::PassDue(uint32_t now, uint32_t& waitMs, uint32_t* lateMs) {
  const uint32_t passed = now - due;
  if (passed >= kPeriodMs) {
    due += kPeriodMs;
    waitMs = 0;
    if (lateMs != nullptr)
      *lateMs = passed - kPeriodMs;
    return true;
  }
  waitMs = kPeriodMs - passed;
  return false;
}

}  // namespace zelk
