// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <vector>

#include "platform/simulated/options.h"
#include "platform/simulated/random.h"
#include "platform/simulated/tasks/task.h"

namespace zelk::sim {

// Chooses who goes on. Thread: the one that runs in the world.
class CPolicy {
 public:
  CPolicy(const SWorldOptions& worldOptions, CRandom& worldRandom);

  // A task that begins gets its place.
  void Place(STask& task);
  // One of those that can run (there is one); current is null or one of them. Called once a step.
  STask* Choose(const std::vector<STask*>& ready, STask* current);
  // The task wants others to go first.
  void Yield(STask& task);

 private:
  STask* AnyOf(const std::vector<STask*>& ready);
  static STask* HighestOf(const std::vector<STask*>& ready);
  STask* NextInTurn(const std::vector<STask*>& ready, const STask* current);

  const SWorldOptions& options;
  CRandom& random;
  uint64_t steps = 0;
  std::vector<uint64_t> changes;  // the steps at which the running task falls, last one first
  uint64_t lowest = UINT64_MAX >> 1;
  uint32_t lastInTurn = 0;
  // A task that looks again and again for what another one is to do would keep it from doing it.
  static constexpr uint32_t kMostStepsInARow = 2000;
  uint32_t stepsInARow = 0;
  uint32_t lastGoing = 0;
};

}  // namespace zelk::sim
