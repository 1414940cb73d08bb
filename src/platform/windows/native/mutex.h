// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstddef>

namespace zelk {

// A critical section, which its own thread may enter again. The system's header stays out of ours. It is made when it
// is first entered, so that an object that holds one can be constructed without code. While the process ends, the
// system lets the last thread pass one that an ended thread still holds.
class CNativeMutex {
 public:
  constexpr CNativeMutex() = default;
  ~CNativeMutex();
  CNativeMutex(const CNativeMutex&) = delete;
  CNativeMutex& operator=(const CNativeMutex&) = delete;

  void lock();
  bool try_lock();
  void unlock();

 private:
  enum class EStage { kRaw, kBeingMade, kReady };
  static constexpr size_t kBytes = 40;

  void Make();

  std::atomic<EStage> stage{EStage::kRaw};
  alignas(void*) unsigned char section[kBytes]{};
};

using CNativeRecursiveMutex = CNativeMutex;

}  // namespace zelk
