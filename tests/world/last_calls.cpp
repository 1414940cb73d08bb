// SPDX-License-Identifier: GPL-2.0-only
#include "world/last_calls.h"

#include <string>

#include "platform/clock.h"
#include "world/stop_trials.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

constexpr int64_t kSoonMs = 3000;
constexpr int64_t kTrialMs = 2600;  // sound of a second both ways, and what is under way

}  // namespace

CLastCalls::CLastCalls(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks,
                       CApplication& application, CFarEnds& ends, CCallers& ownCallers)
    : world(ownWorld), plan(worldPlan), checks(ownChecks), app(application), farEnds(ends), callers(ownCallers) {}

void CLastCalls::Try() {
  callers.BeginTrial();
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); channel += ZELK_CHANNELS_PER_TRUNK) {
    TryOut(channel + 2);
    TryIn(channel + 17);
  }
  TryStops();
}

void CLastCalls::TryOut(int32_t channel) {
  if (Connect(channel)) {
    callers.Play(channel);
    zelk::SleepMs(kTrialMs);
    Disconnect(channel);
  }
}

bool CLastCalls::Connect(int32_t channel) {
  const size_t connected = app.Count(channel, ZELK_EVENT_CONNECTED);
  callers.Dial(channel, SFarEndPlan());
  const bool isConnected = app.AwaitEvent(channel, ZELK_EVENT_CONNECTED, kSoonMs, connected + 1);
  checks.Require(isConnected, "a last call of channel " + std::to_string(channel) + " is not answered");
  return isConnected;
}

void CLastCalls::Disconnect(int32_t channel) {
  const size_t disconnected = app.Count(channel, ZELK_EVENT_DISCONNECTED);
  callers.Hangup(channel);
  checks.Require(app.AwaitEvent(channel, ZELK_EVENT_DISCONNECTED, kSoonMs, disconnected + 1),
                 "a last call of channel " + std::to_string(channel) + " does not end");
}

void CLastCalls::TryStops() {
  constexpr int32_t kChannel = 4;
  if (plan.stopTrials == 0 || !Connect(kChannel)) {
    return;
  }
  CStopTrials trials(world, plan, checks, farEnds);
  app.onPlay = [&trials](uint32_t channel, uint8_t*, uint32_t) { trials.OnBlock(static_cast<int32_t>(channel)); };
  trials.Try(kChannel, plan.stopTrials);
  app.onPlay = nullptr;
  Disconnect(kChannel);
}

void CLastCalls::TryIn(int32_t channel) {
  const std::string name = "a last call to channel " + std::to_string(channel);
  const size_t connected = app.Count(channel, ZELK_EVENT_CONNECTED);
  const size_t disconnected = app.Count(channel, ZELK_EVENT_DISCONNECTED);
  SFarEndPlan farEnd;
  farEnd.hangupAfterMs = kTrialMs;
  farEnd.hangupCause = 31;
  world.After(0, [this, channel, farEnd] { farEnds.Offer(PlaceOf(plan, channel), farEnd); });
  if (!app.AwaitEvent(channel, ZELK_EVENT_CONNECTED, kSoonMs, connected + 1)) {
    checks.Fail(name + " is not connected");
    return;
  }
  callers.Play(channel);
  checks.Require(app.AwaitEvent(channel, ZELK_EVENT_DISCONNECTED, kTrialMs + kSoonMs, disconnected + 1),
                 name + " does not end");
}

}  // namespace world
