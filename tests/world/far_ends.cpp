// SPDX-License-Identifier: GPL-2.0-only
#include "world/far_ends.h"

#include <utility>

#include "zelk/ZelkApi.h"

namespace world {
namespace {

using cardsim::Call;
using cardsim::SAnswerPlan;
using cardsim::SFarEnd;
using std::chrono::milliseconds;

constexpr size_t kSoundBytes = 12'000;
constexpr const char* kDigits = "159D*0#7A26B48C3";
constexpr int kFirstNumber = 500'000;

std::optional<milliseconds> ToMs(const std::optional<int64_t>& ms) {
  return ms ? std::optional<milliseconds>(milliseconds(*ms)) : std::nullopt;
}

// The same for every call that sends digits, and slow to make.
const cardsim::Bytes& DigitSound() {
  static const cardsim::Bytes sound = cardsim::RenderDtmf(kDigits, 80, 80, -7);
  return sound;
}

}  // namespace

SPlace PlaceOf(const SWorldPlan& plan, int32_t channel) {
  SPlace place;
  int trunk = channel / ZELK_CHANNELS_PER_TRUNK;
  const int index = channel % ZELK_CHANNELS_PER_TRUNK;
  while (trunk >= plan.cards.at(static_cast<size_t>(place.card)).trunks) {
    trunk -= plan.cards[static_cast<size_t>(place.card++)].trunks;
  }
  place.trunk = trunk;
  place.timeslot = index < 15 ? index + 1 : index + 2;
  return place;
}

int32_t ChannelAt(const SWorldPlan& plan, const SPlace& place) {
  int trunk = place.trunk;
  for (int card = 0; card < place.card; ++card) {
    trunk += plan.cards.at(static_cast<size_t>(card)).trunks;
  }
  return trunk * ZELK_CHANNELS_PER_TRUNK + (place.timeslot < 16 ? place.timeslot - 1 : place.timeslot - 2);
}

CFarEnds::CFarEnds(zelk::sim::CWorld& ownWorld, cardsim::CSimulator& simulator, const SWorldPlan& worldPlan)
    : world(ownWorld), sim(simulator), plan(worldPlan) {
  for (size_t i = 0; i < sim.CardCount(); ++i) {
    const int card = static_cast<int>(i);
    sim.Card(i).SetAnswerPlanner([this, card](const cardsim::CCall& call) { return Plan(card, call); });
    sim.Card(i).OnCallArrived([this, card](const Call& call) { OnArrived(card, call); });
    sim.Card(i).OnCallEnded([this](const Call& call) { OnEnded(call); });
  }
}

std::string CFarEnds::NumberFor(const SFarEndPlan& farEnd) {
  const std::string number = std::to_string(kFirstNumber + static_cast<int>(dialled.size()));
  dialled.emplace(number, farEnd);
  return number;
}

int32_t CFarEnds::ChannelOf(const cardsim::CCall& call) const {
  return call.Timeslot() < 1 ? -1 : ChannelAt(plan, {call.card, call.trunk, call.Timeslot()});
}

cardsim::Bytes CFarEnds::Played(const SFarCall& call) const {
  cardsim::Bytes sound = call.sound;
  if (plan.planted == EPlanted::kFarSound) {
    sound[sound.size() / 8] ^= 1;
  } else if (plan.planted == EPlanted::kDigit && !call.digits.empty()) {
    sound = cardsim::RenderDtmf(call.digits.substr(1), 80, 80, -7);
  }
  return sound;
}

SFarEnd CFarEnds::MakeFarEnd(SFarCall& call) {
  ++calls;
  call.beganUs = world.NowUs();
  if (call.farEnd.sendsDigits) {
    call.digits = kDigits;
    call.sound = DigitSound();
  } else {
    call.sound = cardsim::RenderTestPattern(kSoundBytes, static_cast<uint32_t>(calls));
  }
  SFarEnd farEnd;
  farEnd.play = cardsim::MakeBytesSource(Played(call));
  farEnd.hangupAfter = ToMs(call.farEnd.hangupAfterMs);
  farEnd.hangupCause = call.farEnd.hangupCause;
  farEnd.clearing = static_cast<cardsim::EClearing>(call.farEnd.clearing);
  return farEnd;
}

void CFarEnds::BeginOffers(int64_t baseUs) {
  for (const SOffer& offer : plan.offers) {
    world.At(baseUs + offer.atMs * zelk::sim::kUsPerMs, [this, &offer] {
      if (!isResting) {
        Offer({offer.card, offer.trunk, offer.timeslot}, offer.farEnd);
      }
    });
  }
}

void CFarEnds::Rest() {
  isResting = true;
  for (const auto& [channel, far] : current) {
    if (far.call != nullptr) {
      far.call->Hangup();
    }
  }
}

void CFarEnds::Offer(const SPlace& place, const SFarEndPlan& farEnd) {
  cardsim::CCard& card = sim.Card(static_cast<size_t>(place.card));
  // A timeslot with a call on it is not offered another one: the last call of the channel stays what it is.
  const auto last = current.find(ChannelAt(plan, place));
  const bool hasCall = last != current.end() && last->second.call != nullptr &&
                       !last->second.call->Reached(cardsim::ESimCallState::kEnded);
  if (hasCall || !card.IsTimeslotIdle(place.trunk, place.timeslot)) {
    return;
  }
  SFarCall call;
  call.farEnd = farEnd;
  cardsim::SCallRequest request;
  request.trunk = place.trunk;
  request.timeslot = place.timeslot;
  request.calling = std::to_string(kFirstNumber + static_cast<int>(calls));
  request.giveUpAfter = ToMs(farEnd.giveUpAfterMs);
  request.farEnd = MakeFarEnd(call);
  call.call = card.PlaceCall(std::move(request));
  current[ChannelAt(plan, place)] = std::move(call);
}

SAnswerPlan CFarEnds::Plan(int, const cardsim::CCall& call) {
  const auto found = dialled.find(call.Called());
  SFarCall made;
  if (found != dialled.end()) {
    made.farEnd = found->second;
  }
  SAnswerPlan answer;
  answer.alertAfter = milliseconds(made.farEnd.alertAfterMs);
  answer.answerAfter = ToMs(made.farEnd.answerAfterMs);
  answer.refuseCause = made.farEnd.refuseCause;
  answer.farEnd = MakeFarEnd(made);
  if (const int32_t channel = ChannelOf(call); channel >= 0) {
    current[channel] = std::move(made);
  }
  return answer;
}

void CFarEnds::OnArrived(int, const Call& call) {
  const auto found = current.find(ChannelOf(*call));
  if (found != current.end() && found->second.call == nullptr) {
    found->second.call = call;
  }
}

void CFarEnds::OnEnded(const Call& call) {
  for (const auto& [channel, far] : current) {
    if (far.call == call && onEnded) {
      onEnded(channel, far);
    }
  }
}

const SFarCall* CFarEnds::CallOf(int32_t channel) const {
  const auto found = current.find(plan.planted == EPlanted::kSwappedCalls ? channel ^ 1 : channel);
  return found == current.end() || found->second.call == nullptr ? nullptr : &found->second;
}

}  // namespace world
