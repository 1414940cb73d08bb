// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/simulated/tasks/carrier.h"

namespace zelk::sim {

enum class EWaitFor { kNothing, kMutex, kEvent, kTime, kSocket };

constexpr int64_t kNever = INT64_MAX;

// What a task waits for.
struct SWait {
  EWaitFor what = EWaitFor::kNothing;
  const void* object = nullptr;  // the mutex, event or socket; for reports and to find who waits, never for an order
  int64_t dueUs = kNever;
  uint32_t holder = 0;  // the task that holds the mutex
};

// A thread of the simulated world. Owned by the scheduler.
struct STask {
  uint32_t number = 0;  // from 1 on
  std::string name;
  std::function<void()> body;
  std::unique_ptr<CStrand> strand;
  bool hasBegun = false;

  uint64_t priority = 0;
  SWait wait;
  int64_t waitsSinceUs = 0;
  uint64_t alarm = 0;  // on the agenda, for the end of its wait; 0: none
  bool hasTimedOut = false;
  size_t place = 0;          // in the list of those that can run, or of those that wait
  int lastError = 0;         // of its last socket call
  bool isInLibrary = false;  // runs the library's code, where it is not inside the simulated system
  int inSystem = 0;          // calls of the simulated system that it is in

  static constexpr int kMostFrames = 40;
  std::array<void*, kMostFrames> frames{};  // taken for a report
  int frameCount = 0;
};

}  // namespace zelk::sim
