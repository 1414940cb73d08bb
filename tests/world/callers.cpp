// SPDX-License-Identifier: GPL-2.0-only
#include "world/callers.h"

#include "platform/clock.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using zelk::sim::kUsPerMs;

constexpr size_t kPlayBytes = 8000;
constexpr int64_t kPlantedCallbackMs = 300;
constexpr uint32_t kFirstPlay = 1'000'000;

}  // namespace

CCallers::CCallers(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CFarEnds& ends,
                   CCallWatch& callWatch, CWorkers& ownWorkers)
    : world(ownWorld), plan(worldPlan), checks(ownChecks), farEnds(ends), watch(callWatch), workers(ownWorkers) {}

void CCallers::BeginSteps(int64_t baseUs) {
  for (const SStep& step : plan.steps) {
    workers.Do(step.thread, baseUs + step.atMs * kUsPerMs, [this, &step] {
      if (mood == EMood::kBusy) {
        Do(step);
      }
    });
  }
}

void CCallers::Do(const SStep& step) {
  switch (step.what) {
    case EStep::kDial:
      return Dial(step.channel, step.farEnd);
    case EStep::kAnswer:
      return Answer(step.channel);
    case EStep::kReject:
      return Reject(step.channel);
    case EStep::kHangupTwice:
      Hangup(step.channel);
      [[fallthrough]];
    case EStep::kHangup:
      return Hangup(step.channel);
    case EStep::kPlay:
      return Play(step.channel);
    case EStep::kStopPlay:
      return StopPlay(step.channel);
    case EStep::kReadInfo:
      return checks.ReadInfo(step.channel);
    case EStep::kReopen:
      checks.Open(step.channel);
  }
}

void CCallers::Dial(int32_t channel, const SFarEndPlan& farEnd) {
  if (checks.State(channel) == ZELK_CHANNEL_READY) {
    watch.OnBegin(channel);
  }
  checks.Dial(channel, farEnds.NumberFor(farEnd));
}

void CCallers::Answer(int32_t channel) {
  checks.Answer(channel);
  watch.OnAnswered(channel);
}

void CCallers::Hangup(int32_t channel) {
  watch.OnClearing(channel);
  checks.Hangup(channel);
}

void CCallers::Reject(int32_t channel) {
  watch.OnClearing(channel);
  checks.Reject(channel);
}

void CCallers::Play(int32_t channel) {
  cardsim::Bytes sound = cardsim::RenderTestPattern(kPlayBytes, kFirstPlay + plays++);
  watch.OnPlay(channel, sound);
  if (plan.planted == EPlanted::kOwnSound) {
    sound[kPlayBytes / 8] ^= 1;
  }
  checks.Play(channel, sound);
}

void CCallers::StopPlay(int32_t channel) {
  watch.OnStopPlay(channel);
  checks.StopPlay(channel);
}

const SManner& CCallers::Manner(int32_t channel) const {
  static const SManner kPlain;
  return plan.manners.empty() ? kPlain : plan.manners[static_cast<size_t>(channel) % plan.manners.size()];
}

void CCallers::React(EReaction reaction, int32_t channel, void (CCallers::*what)(int32_t)) {
  if (reaction == EReaction::kAtOnce) {
    (this->*what)(channel);
  } else if (reaction == EReaction::kLater) {
    workers.Do(channel, world.NowUs() + Manner(channel).laterMs * kUsPerMs, [this, channel, what] {
      if (mood == EMood::kBusy) {
        (this->*what)(channel);
      }
    });
  }
}

void CCallers::OnEvent(const SEvent& event) {
  checks.OnEvent(event);
  const int64_t plantedMs = plan.planted == EPlanted::kSlowCallback ? kPlantedCallbackMs : 0;
  if (const int64_t takesMs = Manner(event.channel).callbackMs + plantedMs; takesMs > 0 && mood == EMood::kBusy) {
    zelk::SleepMs(static_cast<uint32_t>(takesMs));
  }
  switch (event.code) {
    case ZELK_EVENT_INCOMING_CALL:
      return OnOffer(event.channel);
    case ZELK_EVENT_CONNECTED:
      return OnConnected(event.channel);
    case ZELK_EVENT_DISCONNECTED:
      watch.OnDisconnected(event);
      return OnEnded(event.channel);
    case ZELK_EVENT_DTMF:
      return watch.OnDigit(event.channel, event.param);
    case ZELK_EVENT_PLAY_DONE:
      return watch.OnPlayDone(event.channel);
    default:
      return;
  }
}

void CCallers::OnOffer(int32_t channel) {
  watch.OnBegin(channel);
  if (mood != EMood::kBusy) {
    return mood == EMood::kTrial ? Answer(channel) : Reject(channel);
  }
  const SManner& manner = Manner(channel);
  if (manner.answers != EReaction::kNone) {
    React(manner.answers, channel, &CCallers::Answer);
  } else {
    React(manner.rejects, channel, &CCallers::Reject);
  }
}

void CCallers::OnConnected(int32_t channel) {
  if (!watch.OnConnected(channel)) {
    return;
  }
  if (mood != EMood::kBusy) {
    return;
  }
  const SManner& manner = Manner(channel);
  if (manner.plays) {
    Play(channel);
  }
  if (manner.stopsInCallback) {
    StopPlay(channel);
  }
  React(manner.hangsUp, channel, &CCallers::Hangup);
}

// What is still queued would be heard by the next call.
void CCallers::OnEnded(int32_t channel) {
  StopPlay(channel);
  if (mood == EMood::kBusy) {
    React(Manner(channel).dialsAgain, channel, &CCallers::DialAgain);
  }
}

void CCallers::DialAgain(int32_t channel) {
  if (++dialsAgain[channel] <= kMostDialsAgain) {
    Dial(channel, SFarEndPlan());
  }
}

void CCallers::Rest() {
  mood = EMood::kResting;
}

void CCallers::ClearAll() {
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    if (checks.State(channel) == ZELK_CHANNEL_INUSE) {
      Hangup(channel);
    }
  }
}

}  // namespace world
