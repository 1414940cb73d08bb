// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

// A lock of the simulated world. What a world left locked is free in the next one, and outside of worlds. Taken twice
// without being recursive, released by a stranger or destroyed while it is held: each ends the run.
class CSimulatedMutex {
 public:
  explicit constexpr CSimulatedMutex(bool mayBeTakenAgain) : isRecursive(mayBeTakenAgain) {}
  ~CSimulatedMutex();
  CSimulatedMutex(const CSimulatedMutex&) = delete;
  CSimulatedMutex& operator=(const CSimulatedMutex&) = delete;

  void lock();
  bool try_lock();
  void unlock();

 private:
  bool IsHeld() const;
  bool IsOthers() const;
  void Take();
  void CheckOrder() const;

  uint64_t world = 0;   // in which it was taken last
  uint32_t holder = 0;  // a task's number; 0: free
  uint32_t depth = 0;
  const bool isRecursive;
  bool isAwaited = false;
};

class CNativeMutex : public CSimulatedMutex {
 public:
  constexpr CNativeMutex() : CSimulatedMutex(false) {}
};

class CNativeRecursiveMutex : public CSimulatedMutex {
 public:
  constexpr CNativeRecursiveMutex() : CSimulatedMutex(true) {}
};

}  // namespace zelk
