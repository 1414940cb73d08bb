// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/timeslots.h"

namespace cardsim {

bool IsVoiceTimeslot(int timeslot) {
  return timeslot > 0 && timeslot < kTimeslots && timeslot != kSignallingTimeslot;
}

bool CTimeslots::Occupy(int timeslot, const Call& call) {
  Call& owner = calls[static_cast<std::size_t>(timeslot)];
  if (owner != nullptr && owner != call) {
    return false;
  }
  owner = call;
  busy |= 1U << timeslot;
  return true;
}

void CTimeslots::Free(const Call& call) {
  for (std::size_t timeslot = 0; timeslot < calls.size(); ++timeslot) {
    if (calls[timeslot] == call) {
      calls[timeslot].reset();
      busy &= ~(1U << timeslot);
    }
  }
}

bool CTimeslots::IsIdle(int timeslot) const {
  return IsVoiceTimeslot(timeslot) && ((busy.load() >> timeslot) & 1) == 0;
}

int CTimeslots::FirstIdle() const {
  for (int timeslot = 1; timeslot < kTimeslots; ++timeslot) {
    if (IsIdle(timeslot)) {
      return timeslot;
    }
  }
  return 0;
}

}  // namespace cardsim
