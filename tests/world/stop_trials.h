// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "cardsim/base/bytes.h"
#include "platform/event.h"
#include "platform/simulated/random.h"
#include "platform/simulated/world.h"
#include "world/callers.h"
#include "world/checks.h"
#include "world/far_ends.h"

namespace world {

// Job: on a call that nothing disturbs, stops a play and plays anew as close as can be to the moment at which the
// library fetches the channel's next block. What was played anew must be heard whole, and what was stopped no more.
// Thread: a task of the application; OnBlock from the play callback.
class CStopTrials {
 public:
  CStopTrials(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CFarEnds& ends);
  CStopTrials(const CStopTrials&) = delete;
  CStopTrials& operator=(const CStopTrials&) = delete;

  void Try(int32_t ownChannel, int count);
  void OnBlock(int32_t ofChannel);

 private:
  bool TryOnce(uint32_t number);
  void AwaitFetch();
  bool IsHeard(const cardsim::Bytes& sound, uint32_t number);

  zelk::sim::CWorld& world;
  const SWorldPlan& plan;
  CChecks& checks;
  CFarEnds& farEnds;
  zelk::sim::CRandom random;
  int32_t channel = -1;
  int64_t fetchedUs = 0;
  int64_t betweenUs = 0;  // the last two fetches
};

}  // namespace world
