// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "platform/mutex.h"
#include "runtime/stop_flag.h"

namespace zelk {

constexpr uint32_t kNoLimitMs = UINT32_MAX;

// How long a thread waits for the locks of trunks, for all of them together: no longer than this, and not at all once
// it has been given up. A callback that does not return may hold one for ever.
struct SLockPatience {
  SLockPatience(uint32_t timeoutMs, const CStopFlag& waitingThread);

  uint32_t startMs;
  uint32_t limitMs;
  const CStopFlag& caller;
};

// Holds a trunk's lock for the length of a block, when it is to be had: a free one always is.
// Thread: any. The constructor blocks up to what is left of the patience.
class CTrunkLock {
 public:
  CTrunkLock(CRecursiveMutex& trunkLock, const SLockPatience& patience);
  ~CTrunkLock();
  CTrunkLock(const CTrunkLock&) = delete;
  CTrunkLock& operator=(const CTrunkLock&) = delete;

  bool IsHeld() const { return isHeld; }

 private:
  CRecursiveMutex& lock;
  const bool isHeld;
};

}  // namespace zelk
