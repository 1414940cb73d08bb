// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/policy.h"

#include <algorithm>

namespace zelk::sim {

CPolicy::CPolicy(const SWorldOptions& worldOptions, CRandom& worldRandom) : options(worldOptions), random(worldRandom) {
  if (options.policy == EPolicy::kPriorities) {
    for (uint32_t i = 0; i < options.changePoints; ++i) {
      changes.push_back(1 + random.Below(options.changeSpan));
    }
    std::sort(changes.rbegin(), changes.rend());
  }
}

// What was drawn is above whatever a fall can give.
void CPolicy::Place(STask& task) {
  if (options.policy == EPolicy::kPriorities) {
    task.priority = random.Next() | (UINT64_MAX / 2 + 1);
  }
}

void CPolicy::Yield(STask& task) {
  if (options.policy == EPolicy::kPriorities) {
    task.priority = lowest--;
  }
}

STask* CPolicy::AnyOf(const std::vector<STask*>& ready) {
  return ready.size() == 1 ? ready.front() : ready[random.Below(ready.size())];
}

STask* CPolicy::HighestOf(const std::vector<STask*>& ready) {
  return *std::max_element(ready.begin(), ready.end(),
                           [](const STask* one, const STask* other) { return one->priority < other->priority; });
}

STask* CPolicy::NextInTurn(const std::vector<STask*>& ready, const STask* current) {
  if (current != nullptr) {
    return const_cast<STask*>(current);
  }
  const auto distance = [this](const STask* task) { return task->number - lastInTurn - 1; };
  STask* const next = *std::min_element(ready.begin(), ready.end(), [&](const STask* one, const STask* other) {
    return distance(one) < distance(other);
  });
  lastInTurn = next->number;
  return next;
}

STask* CPolicy::Choose(const std::vector<STask*>& ready, STask* current) {
  ++steps;
  if (options.policy == EPolicy::kRandom) {
    const bool goesOn = current != nullptr && (ready.size() == 1 || !random.Chance(options.switchPerMillion));
    return goesOn ? current : AnyOf(ready);
  }
  if (current != nullptr && current->number != lastGoing) {
    lastGoing = current->number;
    stepsInARow = 0;
  }
  const bool hasFall = !changes.empty() && steps >= changes.back() && current != nullptr;
  if (hasFall) {
    changes.pop_back();
  }
  const bool isGreedy = current != nullptr && ready.size() > 1 && ++stepsInARow > kMostStepsInARow;
  if (hasFall || isGreedy) {
    Yield(*current);
  }
  stepsInARow = isGreedy ? 0 : stepsInARow;
  return options.policy == EPolicy::kPriorities ? HighestOf(ready) : NextInTurn(ready, isGreedy ? nullptr : current);
}

}  // namespace zelk::sim
