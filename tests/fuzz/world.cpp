// SPDX-License-Identifier: GPL-2.0-only

// A whole world: the library over the simulated system, a card, its exchange and an application, all checked as the
// worlds of a seed are. An input is
//
//   head (6): threads' order: policy (2 bits), how often they change (6 bits); their seed (2); trunks, sides and
//   threads
//             (1); two manners (2)
//   parts until the input ends: what (3 bits) and how (5 bits); milliseconds since the part before (1, times 8); where,
//   how long and how much (2), of a call a byte more for its far end
//     0-2 a fault, its kind the lower five bits     3-4 a call that the exchange offers     5-7 a step of the
//     application
#include "platform/simulated/world.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "fuzz/target.h"
#include "world/run.h"

namespace zelk::fuzz {
namespace {

using world::EFault;
using world::EReaction;
using world::EStep;
using world::SFarEndPlan;
using world::SWorldPlan;

constexpr size_t kMostParts = 40;
constexpr int64_t kAfterwardsMs = 500;

EReaction Reaction(unsigned bits) {
  return static_cast<EReaction>(bits % 3);
}

world::SManner Manner(uint8_t byte) {
  world::SManner manner;
  manner.answers = Reaction(byte & 3U);
  manner.rejects = manner.answers == EReaction::kNone ? EReaction::kLater : EReaction::kNone;
  manner.hangsUp = Reaction(byte >> 2 & 3U);
  manner.plays = (byte & 16U) == 0;
  manner.stopsInCallback = (byte & 32U) != 0;
  manner.laterMs = (byte & 64U) != 0 ? 20 : 700;
  manner.callbackMs = (byte & 128U) != 0 ? 15 : 0;
  return manner;
}

SFarEndPlan FarEnd(uint8_t byte) {
  SFarEndPlan farEnd;
  farEnd.alertAfterMs = (byte & 1U) != 0 ? 150 : 0;
  farEnd.answerAfterMs = farEnd.alertAfterMs + ((byte & 2U) != 0 ? 300 : 0);
  switch (byte >> 2 & 3U) {
    case 1:
      farEnd.refuseCause = 17;
      break;
    case 2:
      farEnd.giveUpAfterMs = 200;
      break;
    case 3:
      farEnd.hangupAfterMs = 400;
      break;
    default:
      break;
  }
  farEnd.clearing = byte >> 4 & 3U;
  farEnd.sendsDigits = (byte & 64U) != 0;
  return farEnd;
}

SWorldPlan HeadOf(CInput& in) {
  SWorldPlan plan;
  const uint8_t order = in.Byte();
  plan.policy = (order & 3U) % 3;
  plan.switchPerMillion = 1000 + 4700U * (order >> 2);
  plan.seed = in.Number(2) + 1;
  const uint8_t shape = in.Byte();
  plan.cards.push_back({(shape & 1U) != 0 ? 2 : 1, 0});
  plan.isNetworkSide = (shape & 2U) != 0;
  plan.threads = 1 + (shape >> 2 & 3U) % 3;
  plan.manners = {Manner(in.Byte()), Manner(in.Byte())};
  return plan;
}

void AddFault(CInput& in, SWorldPlan& plan, int64_t atMs, unsigned how) {
  const uint8_t length = in.Byte();
  const uint8_t where = in.Byte();
  world::SFault fault;
  fault.atMs = atMs;
  fault.kind = static_cast<EFault>(how % world::kFaultKinds);
  fault.trunk = (where & 1) % plan.Trunks();
  fault.lengthMs = 10 + int64_t{length} * 12;
  fault.amount = 1 + (where >> 1) % 20;
  plan.faults.push_back(fault);
}

void AddOffer(CInput& in, SWorldPlan& plan, int64_t atMs, unsigned how) {
  world::SOffer offer;
  offer.atMs = atMs;
  offer.trunk = static_cast<int>(how & 1U) % plan.Trunks();
  offer.timeslot = 1 + static_cast<int>(how >> 1 & 3U);
  offer.farEnd = FarEnd(in.Byte());
  plan.offers.push_back(offer);
}

void AddStep(CInput& in, SWorldPlan& plan, int64_t atMs, unsigned how) {
  const uint8_t where = in.Byte();
  world::SStep step;
  step.atMs = atMs;
  step.what = static_cast<EStep>(how % world::kStepKinds);
  step.thread = (where >> 4) % plan.threads;
  step.channel = (where & 3) + 30 * ((where >> 2 & 1) % plan.Trunks());
  step.farEnd = FarEnd(step.what == EStep::kDial ? in.Byte() : 0);
  plan.steps.push_back(step);
}

SWorldPlan PlanOf(CInput& in) {
  SWorldPlan plan = HeadOf(in);
  int64_t atMs = 0;
  for (size_t i = 0; i < kMostParts && !in.IsEmpty(); ++i) {
    const uint8_t what = in.Byte();
    const unsigned how = what & 31U;
    atMs += int64_t{in.Byte()} * 8;
    if (what >> 5 < 3) {
      AddFault(in, plan, atMs, how);
    } else if (what >> 5 < 5) {
      AddOffer(in, plan, atMs, how);
    } else {
      AddStep(in, plan, atMs, how);
    }
  }
  plan.lengthMs = std::max(atMs, plan.LastFaultMs()) + kAfterwardsMs;
  return plan;
}

// The library's objects are the process's: after a world that stands still there can be no other.
void Run(const uint8_t* bytes, size_t length) {
  CInput in(bytes, length);
  const SWorldPlan plan = PlanOf(in);
  const world::SRunResult result = world::RunWorld(plan);
  if (!result.failures.empty()) {
    std::fprintf(stderr, "%s\nevents:\n%s\n", world::ToText(plan).c_str(), result.eventText.c_str());
    for (const std::string& failure : result.failures) {
      std::fprintf(stderr, "%s\n", failure.c_str());
    }
  }
  Require(result.failures.empty(), "a world holds");
}

constexpr uint8_t What(unsigned kind, unsigned how) {
  return static_cast<uint8_t>(kind << 5 | how);
}

std::vector<Bytes> Seeds() {
  const Bytes head{0x21, 1, 0, 0, 0x01, 0x05};
  const auto step = [](EStep what) { return What(5, static_cast<unsigned>(what)); };
  const auto fault = [](EFault kind) { return What(0, static_cast<unsigned>(kind)); };
  return {
      Join({head, {step(EStep::kDial), 10, 0, 0}, {step(EStep::kPlay), 60, 0}, {step(EStep::kHangup), 60, 0}}),
      Join({head, {What(3, 2), 10, 0x0C}, {What(3, 0), 5, 0x48}}),
      Join({head, {step(EStep::kDial), 10, 1, 0x0C}, {fault(EFault::kDropControl), 30, 0, 0}, {What(3, 4), 255, 0}}),
      Join({{0x0A, 7, 1, 3, 0x81, 0x20},
            {What(4, 1), 1, 0x30},
            {step(EStep::kDial), 0, 0x10, 0},
            {fault(EFault::kLineDown), 20, 90, 0},
            {fault(EFault::kAudioBad), 200, 50, 9}}),
  };
}

const SRegistered registered({"world", Run, Seeds, 100});

}  // namespace
}  // namespace zelk::fuzz
