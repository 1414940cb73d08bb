// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <map>

#include "world/call_watch.h"
#include "world/checks.h"
#include "world/far_ends.h"
#include "world/plan.h"
#include "world/workers.h"

namespace world {

// Job: what a plan's application does: the steps of its threads, and what it does about events, in the callback or
// later in a thread. Thread: tasks of the world.
class CCallers {
 public:
  CCallers(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CFarEnds& ends,
           CCallWatch& callWatch, CWorkers& ownWorkers);
  CCallers(const CCallers&) = delete;
  CCallers& operator=(const CCallers&) = delete;

  void BeginSteps(int64_t baseUs);
  void OnEvent(const SEvent& event);  // from the callback
  // Does nothing more out of itself and wants no call any more.
  void Rest();
  void ClearAll();
  // Answers what is offered, and nothing else.
  void BeginTrial() { mood = EMood::kTrial; }

  void Dial(int32_t channel, const SFarEndPlan& farEnd);
  void Answer(int32_t channel);
  void Hangup(int32_t channel);
  void Reject(int32_t channel);
  void Play(int32_t channel);
  void StopPlay(int32_t channel);

 private:
  static constexpr int kMostDialsAgain = 10;
  enum class EMood { kBusy, kResting, kTrial };

  void Do(const SStep& step);
  void React(EReaction reaction, int32_t channel, void (CCallers::*what)(int32_t));
  void OnOffer(int32_t channel);
  void OnConnected(int32_t channel);
  void OnEnded(int32_t channel);
  void DialAgain(int32_t channel);
  const SManner& Manner(int32_t channel) const;

  zelk::sim::CWorld& world;
  const SWorldPlan& plan;
  CChecks& checks;
  CFarEnds& farEnds;
  CCallWatch& watch;
  CWorkers& workers;
  EMood mood = EMood::kBusy;
  uint32_t plays = 0;
  std::map<int32_t, int> dialsAgain;
};

}  // namespace world
