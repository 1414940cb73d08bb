// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "cardsim/card/simulator.h"
#include "platform/simulated/world.h"
#include "world/plan.h"

namespace world {

// Job: brings a plan's faults about, on the simulated cards of a world, and knows what they have touched. Of two faults
// of a kind that overlap, the effect ends with the last. Thread: tasks and acts of the world.
class CFaultDriver {
 public:
  CFaultDriver(zelk::sim::CWorld& ownWorld, cardsim::CSimulator& simulator, const SWorldPlan& worldPlan);
  CFaultDriver(const CFaultDriver&) = delete;
  CFaultDriver& operator=(const CFaultDriver&) = delete;

  // From this time of the world on.
  void Begin(int64_t baseUs);
  // Called with each odd message and each RESTART, which ends a call without a word to the application, before it goes.
  std::function<void(int card, int trunk)> onOdd;

  // Something was wrong with the trunk's signalling, or the card's sound, between the two, or shortly before.
  bool TouchesSignalling(int card, int trunk, int64_t fromUs, int64_t toUs) const;
  bool TouchesSound(int card, int trunk, int64_t fromUs, int64_t toUs) const;
  // What is not of the plan touches everything from the one to the other.
  void BeginTouch();
  void EndTouch();

 private:
  using Key = std::pair<EFault, int>;  // a state and the card or trunk that has it

  void Do(const SFault& fault);
  void DoToCard(const SFault& fault);
  void DoToTrunk(const SFault& fault);
  void DoToSound(const SFault& fault);
  // Calls change(true) now and change(false) at its end, unless another of the kind goes on.
  void Last(const SFault& fault, int place, const std::function<void(bool)>& change);
  void TellOdd(const SFault& fault);
  void SendOdd(const SFault& fault);
  bool IsTouched(int64_t fromUs, int64_t toUs) const;
  bool Overlaps(const SFault& fault, int64_t fromUs, int64_t toUs) const;

  zelk::sim::CWorld& world;
  cardsim::CSimulator& sim;
  const SWorldPlan& plan;
  int64_t beginUs = 0;
  std::map<Key, int> lasting;
  std::vector<std::pair<int64_t, int64_t>> touches;  // from, to
};

}  // namespace world
