// SPDX-License-Identifier: GPL-2.0-only
#include "world/plan.h"

#include <algorithm>

#include "platform/simulated/random.h"

namespace world {
namespace {

using zelk::sim::CRandom;

constexpr int kDrawnFaultKinds = 16;  // the others are extras
constexpr int kLastTimeslot = 31;
constexpr int kSignallingTimeslot = 16;
constexpr int kChannelsPerTrunk = 30;

int Pick(CRandom& random, int least, int most) {
  return static_cast<int>(random.Between(least, most));
}

bool OneIn(CRandom& random, uint64_t count) {
  return random.Below(count) == 0;
}

EReaction AnyReaction(CRandom& random) {
  return static_cast<EReaction>(random.Below(3));
}

int AnyTimeslot(CRandom& random) {
  // Mostly the first ones, so that calls meet.
  const int most = OneIn(random, 4) ? kLastTimeslot : 4;
  const int timeslot = Pick(random, 1, most);
  return timeslot == kSignallingTimeslot ? kLastTimeslot : timeslot;
}

int AnyCause(CRandom& random) {
  constexpr int kCauses[] = {1, 16, 17, 18, 19, 21, 27, 31, 34, 38, 41, 44, 127};
  return kCauses[random.Below(std::size(kCauses))];
}

SFarEndPlan DrawFarEnd(CRandom& random) {
  SFarEndPlan farEnd;
  farEnd.alertAfterMs = OneIn(random, 3) ? random.Between(0, 2000) : 0;
  farEnd.answerAfterMs = farEnd.alertAfterMs + (OneIn(random, 3) ? random.Between(0, 5000) : 0);
  if (OneIn(random, 8)) {
    farEnd.answerAfterMs.reset();
  }
  if (OneIn(random, 8)) {
    farEnd.refuseCause = AnyCause(random);
  }
  if (OneIn(random, 4)) {
    farEnd.giveUpAfterMs = random.Between(0, 4000);
  }
  if (OneIn(random, 2)) {
    farEnd.hangupAfterMs = random.Between(0, 8000);
  }
  farEnd.hangupCause = AnyCause(random);
  farEnd.clearing = OneIn(random, 3) ? Pick(random, 0, 3) : 0;
  farEnd.sendsDigits = OneIn(random, 3);
  return farEnd;
}

SManner DrawManner(CRandom& random) {
  SManner manner;
  manner.answers = OneIn(random, 6) ? EReaction::kNone : AnyReaction(random);
  manner.rejects = AnyReaction(random);
  manner.hangsUp = AnyReaction(random);
  manner.dialsAgain = OneIn(random, 4) ? AnyReaction(random) : EReaction::kNone;
  manner.plays = !OneIn(random, 4);
  manner.stopsInCallback = OneIn(random, 8);
  manner.laterMs = OneIn(random, 3) ? random.Between(0, 20) : random.Between(100, 6000);
  manner.callbackMs = OneIn(random, 10) ? random.Between(1, 50) : 0;
  manner.callbackMs = OneIn(random, 60) ? random.Between(1000, 5000) : manner.callbackMs;
  return manner;
}

int64_t DrawLength(CRandom& random, EFault kind) {
  switch (kind) {
    case EFault::kSilence:
    case EFault::kLineDown:
    case EFault::kTornControl:
      return random.Between(100, 8000);
    case EFault::kFramesLost:
    case EFault::kAudioPause:
      return random.Between(10, 700);
    case EFault::kSlowExchange:
    case EFault::kAudioStops:
    case EFault::kAudioBad:
      return random.Between(50, 5000);
    default:
      return 0;
  }
}

SFault DrawFault(CRandom& random, const SWorldPlan& plan, int64_t atMs) {
  SFault fault;
  fault.atMs = atMs;
  fault.kind = static_cast<EFault>(random.Below(kDrawnFaultKinds));
  fault.card = Pick(random, 0, static_cast<int>(plan.cards.size()) - 1);
  fault.trunk = Pick(random, 0, plan.cards[static_cast<size_t>(fault.card)].trunks - 1);
  fault.lengthMs = DrawLength(random, fault.kind);
  fault.amount = fault.kind == EFault::kRestartSlot ? AnyTimeslot(random) : Pick(random, 1, 20);
  return fault;
}

SOffer DrawOffer(CRandom& random, const SWorldPlan& plan) {
  SOffer offer;
  offer.atMs = random.Between(0, plan.lengthMs);
  offer.card = Pick(random, 0, static_cast<int>(plan.cards.size()) - 1);
  offer.trunk = Pick(random, 0, plan.cards[static_cast<size_t>(offer.card)].trunks - 1);
  offer.timeslot = AnyTimeslot(random);
  offer.farEnd = DrawFarEnd(random);
  return offer;
}

SStep DrawStep(CRandom& random, const SWorldPlan& plan) {
  SStep step;
  step.atMs = random.Between(0, plan.lengthMs);
  step.thread = Pick(random, 0, plan.threads - 1);
  step.what = OneIn(random, 2) ? EStep::kDial : static_cast<EStep>(random.Below(kStepKinds));
  step.channel = Pick(random, 0, plan.Trunks() - 1) * kChannelsPerTrunk + AnyTimeslot(random) % kChannelsPerTrunk;
  step.farEnd = DrawFarEnd(random);
  return step;
}

// In bursts, so that they meet, and calls between them are left alone.
void DrawFaults(CRandom& random, SWorldPlan& plan) {
  constexpr int64_t kBurstMs = 20'000;
  std::vector<int64_t> bursts;
  for (int i = Pick(random, 2, 6); i > 0; --i) {
    bursts.push_back(random.Between(0, plan.lengthMs - kBurstMs));
  }
  for (int i = Pick(random, 20, 40); i > 0; --i) {
    const int64_t atMs = bursts[random.Below(bursts.size())] + random.Between(0, kBurstMs);
    plan.faults.push_back(DrawFault(random, plan, atMs));
  }
}

void DrawCards(CRandom& random, SWorldPlan& plan) {
  const int cards = OneIn(random, 5) ? Pick(random, 2, 4) : 1;
  for (int i = 0; i < cards; ++i) {
    SCardPlan card;
    card.trunks = OneIn(random, 5) ? Pick(random, 2, 3) : 1;
    card.trunks = OneIn(random, 100) ? 8 : card.trunks;
    plan.cards.push_back(card);
  }
}

SLifeEnd DrawLifeEnd(CRandom& random) {
  SLifeEnd end;
  end.afterMs = random.Between(0, 3000);
  end.moment = static_cast<EMoment>(random.Below(kMoments));
  end.callbackMs = OneIn(random, 2) ? random.Between(0, 5000) : 0;
  end.isUnderLock = OneIn(random, 2);
  end.callsEverything = OneIn(random, 3);
  end.downMs = OneIn(random, 2) ? random.Between(0, 3000) : 0;
  return end;
}

// Drawn apart from the rest, for every other seed: the worlds that were kept before there were extras stay as they
// were, and the salt is one that gives none of them any.
void DrawExtras(SWorldPlan& plan) {
  constexpr uint64_t kSalt = 133;
  constexpr int kMostPackets = 20'000;  // half a minute
  CRandom random(plan.seed + kSalt * 1'000'003);
  if (OneIn(random, 2)) {
    return;
  }
  plan.watchesLog = true;
  plan.stopTrials = Pick(random, 10, 40);
  for (int i = Pick(random, 1, 3); i > 0; --i) {
    plan.lives.push_back(DrawLifeEnd(random));
  }
  for (int i = Pick(random, 0, 2); i > 0; --i) {
    SFault jump;
    jump.kind = EFault::kSequenceJump;
    jump.atMs = random.Between(0, plan.lengthMs);
    jump.card = Pick(random, 0, static_cast<int>(plan.cards.size()) - 1);
    jump.amount = Pick(random, 1, kMostPackets);
    plan.faults.push_back(jump);
  }
}

template <class Part>
void SortByTime(std::vector<Part>& parts) {
  std::stable_sort(parts.begin(), parts.end(),
                   [](const Part& one, const Part& other) { return one.atMs < other.atMs; });
}

}  // namespace

int SWorldPlan::Trunks() const {
  int trunks = 0;
  for (const SCardPlan& card : cards) {
    trunks += card.trunks;
  }
  return trunks;
}

int64_t SWorldPlan::LastFaultMs() const {
  int64_t last = 0;
  for (const SFault& fault : faults) {
    last = std::max(last, fault.atMs + fault.lengthMs);
  }
  return last;
}

bool SWorldPlan::HasSlowCallbacks() const {
  constexpr int64_t kSlowMs = 60;
  return std::any_of(manners.begin(), manners.end(), [](const SManner& manner) { return manner.callbackMs > kSlowMs; });
}

bool SWorldPlan::MayTearSound() const {
  constexpr int64_t kRingMs = 600;  // a ring holds 640
  const auto trunks = std::max_element(cards.begin(), cards.end(), [](const SCardPlan& one, const SCardPlan& other) {
    return one.trunks < other.trunks;
  });
  int64_t turnMs = 0;
  for (int channel = 0; !manners.empty() && channel < trunks->trunks * kChannelsPerTrunk; ++channel) {
    turnMs += manners[static_cast<size_t>(channel) % manners.size()].callbackMs;
  }
  return HasSlowCallbacks() || turnMs > kRingMs;
}

bool SWorldPlan::HasLateReplies() const {
  return HasSlowCallbacks() ||
         std::any_of(lives.begin(), lives.end(), [](const SLifeEnd& end) { return end.moment != EMoment::kAnyTime; });
}

SWorldPlan DrawPlan(uint64_t seed) {
  CRandom random(seed);
  SWorldPlan plan;
  plan.seed = seed;
  plan.policy = Pick(random, 0, 2);
  plan.switchPerMillion = static_cast<uint32_t>(random.Between(1000, 300'000));
  plan.stallPerMillion = 0;
  DrawCards(random, plan);
  plan.isNetworkSide = OneIn(random, 5);
  plan.threads = Pick(random, 1, 3);
  plan.lengthMs = random.Between(580, 640) * 1000;
  for (int i = 0; i < 7; ++i) {
    plan.manners.push_back(DrawManner(random));
  }
  const int busy = Pick(random, 2, 20);  // seconds between two of a kind
  const int64_t parts = plan.lengthMs / 1000 / busy + 1;
  DrawFaults(random, plan);
  for (int64_t i = 0; i < parts; ++i) {
    plan.offers.push_back(DrawOffer(random, plan));
    plan.steps.push_back(DrawStep(random, plan));
  }
  DrawExtras(plan);
  SortByTime(plan.faults);
  SortByTime(plan.offers);
  SortByTime(plan.steps);
  return plan;
}

}  // namespace world
