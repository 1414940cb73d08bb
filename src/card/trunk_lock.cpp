// SPDX-License-Identifier: GPL-2.0-only
#include "card/trunk_lock.h"

#include "platform/clock.h"

namespace zelk {

namespace {

bool TryFor(CRecursiveMutex& lock, const SLockPatience& patience) ZELK_NO_THREAD_SAFETY_ANALYSIS {
  while (!lock.TryLock()) {
    const bool isOver = patience.limitMs != kNoLimitMs && TickMs() - patience.startMs >= patience.limitMs;
    if (isOver || patience.caller.IsSet()) {
      return false;
    }
    SleepMs(1);
  }
  return true;
}

}  // namespace

SLockPatience::SLockPatience(uint32_t timeoutMs, const CStopFlag& waitingThread)
    : startMs(TickMs()), limitMs(timeoutMs), caller(waitingThread) {}

CTrunkLock::CTrunkLock(CRecursiveMutex& trunkLock, const SLockPatience& patience)
    : lock(trunkLock), isHeld(TryFor(trunkLock, patience)) {}

CTrunkLock::~CTrunkLock() ZELK_NO_THREAD_SAFETY_ANALYSIS {
  if (isHeld) {
    lock.Unlock();
  }
}

}  // namespace zelk
