// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "cardsim/card/simulator.h"
#include "platform/simulated/world.h"
#include "world/plan.h"

namespace world {

// Where a channel is. The library numbers them card by card, trunk by trunk.
struct SPlace {
  int card = 0;
  int trunk = 0;
  int timeslot = 1;
};
SPlace PlaceOf(const SWorldPlan& plan, int32_t channel);
int32_t ChannelAt(const SWorldPlan& plan, const SPlace& place);

// A call as its far end has it. What it plays is its own: no two calls of a world sound the same.
struct SFarCall {
  cardsim::Call call;
  SFarEndPlan farEnd;
  cardsim::Bytes sound;
  std::string digits;  // instead of a sound of its own
  int64_t beganUs = 0;
};

// Job: the people behind the exchange: they call, answer and clear by plan. Of each channel it knows the last call.
// Thread: tasks and acts of the world; Offer and the exchange's own calls are acts.
class CFarEnds {
 public:
  CFarEnds(zelk::sim::CWorld& ownWorld, cardsim::CSimulator& simulator, const SWorldPlan& worldPlan);
  CFarEnds(const CFarEnds&) = delete;
  CFarEnds& operator=(const CFarEnds&) = delete;

  // A number that reaches a far end of this kind, once.
  std::string NumberFor(const SFarEndPlan& farEnd);
  void BeginOffers(int64_t baseUs);
  void Offer(const SPlace& place, const SFarEndPlan& farEnd);
  // Nobody calls any more, and who is in a call hangs up. An act.
  void Rest();

  // The last call of a channel; null when there was none.
  const SFarCall* CallOf(int32_t channel) const;
  // The last call of the channel, when it has ended.
  std::function<void(int32_t channel, const SFarCall& call)> onEnded;
  uint64_t Calls() const { return calls; }

 private:
  cardsim::Bytes Played(const SFarCall& call) const;
  cardsim::SFarEnd MakeFarEnd(SFarCall& call);
  cardsim::SAnswerPlan Plan(int card, const cardsim::CCall& call);
  void OnArrived(int card, const cardsim::Call& call);
  void OnEnded(const cardsim::Call& call);
  int32_t ChannelOf(const cardsim::CCall& call) const;

  zelk::sim::CWorld& world;
  cardsim::CSimulator& sim;
  const SWorldPlan& plan;
  std::map<std::string, SFarEndPlan> dialled;  // by number
  std::map<int32_t, SFarCall> current;         // by channel
  uint64_t calls = 0;
  bool isResting = false;
};

}  // namespace world
