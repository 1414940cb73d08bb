// SPDX-License-Identifier: GPL-2.0-only
#include "world/lives.h"

#include "platform/clock.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using zelk::sim::kUsPerMs;

constexpr int kCalls = 5;
constexpr int64_t kMomentMs = 3000;
constexpr int64_t kCallbackMs = 20'000;
constexpr int64_t kCallBeforeMs = 300;
constexpr uint32_t kBlocksMs = 50;  // two fetches of each channel

bool IsOfSignalling(EMoment moment) {
  return moment == EMoment::kChannelState || moment == EMoment::kDisconnected || moment == EMoment::kIncoming;
}

bool IsOf(EMoment moment, uint32_t code) {
  switch (moment) {
    case EMoment::kChannelState:
      return code == ZELK_EVENT_CHANNEL_STATE;
    case EMoment::kDisconnected:
      return code == ZELK_EVENT_DISCONNECTED;
    case EMoment::kIncoming:
      return code == ZELK_EVENT_INCOMING_CALL;
    case EMoment::kPlayDone:
      return code == ZELK_EVENT_PLAY_DONE;
    default:
      return false;
  }
}

}  // namespace

CLives::CLives(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CApplication& application,
               cardsim::CSimulator& simulator, CFarEnds& ends, CFaultDriver& faultDriver, CCallWatch& callWatch,
               CCallers& ownCallers)
    : world(ownWorld),
      plan(worldPlan),
      checks(ownChecks),
      app(application),
      sim(simulator),
      farEnds(ends),
      faults(faultDriver),
      watch(callWatch),
      callers(ownCallers),
      random(worldPlan.seed) {}

void CLives::Run() {
  for (const SLifeEnd& end : plan.lives) {
    if (!checks.Failures().empty()) {
      return;
    }
    End(end);
    Begin(end);
  }
}

void CLives::End(const SLifeEnd& end) {
  callers.BeginTrial();
  MakeCalls();
  zelk::SleepMs(static_cast<uint32_t>(end.afterMs));
  faults.BeginTouch();
  AwaitMoment(end);
  isLocked = end.isUnderLock;
  isFree.Reset();
  goesDown.Set();
  if (plan.planted == EPlanted::kEarlyDown) {
    app.SetDown(true);
    zelk::SleepMs(100);
  }
  checks.Shutdown(end.moment != EMoment::kAnyTime);
  app.SetDown(true);
  ++shutdowns;
  isLocked = false;
  isFree.Set();
  checks.Require(ZELK_GetChannelCount() == 0, "channels after a shut-down");
}

void CLives::Begin(const SLifeEnd& end) {
  zelk::SleepMs(static_cast<uint32_t>(end.downMs));
  if (IsOfSignalling(end.moment)) {
    AwaitCallbacks(kCallbackMs);  // the card cannot be opened before
  }
  checks.ForgetCalls();
  watch.ForgetCalls();
  app.SetDown(false);
  checks.Require(checks.Init(), "ZELK_Init has failed in a later life");
  const int32_t channels = plan.Trunks() * ZELK_CHANNELS_PER_TRUNK;
  checks.Require(ZELK_GetChannelCount() == channels,
                 "channels of a later life: " + std::to_string(ZELK_GetChannelCount()));
  checks.Require(app.AwaitAllReady(kReadyMs), "not ready in a later life");
  faults.EndTouch();
  AwaitCallbacks(kCallbackMs);
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    checks.Open(channel);
  }
}

void CLives::AwaitCallbacks(int64_t mostMs) {
  checks.Require(app.Await([this] { return app.CallbacksInside() == 0; }, mostMs), "a callback does not return");
}

// Some of each direction, on the first trunk of any card.
void CLives::MakeCalls() {
  for (int i = 0; i < kCalls; ++i) {
    const int32_t trunk = static_cast<int32_t>(random.Below(static_cast<uint64_t>(plan.Trunks())));
    const int32_t channel = trunk * ZELK_CHANNELS_PER_TRUNK + 2 * i + 1;
    SFarEndPlan farEnd;
    farEnd.hangupAfterMs = random.Between(100, 6000);
    // It may come in the next life, or when there is none.
    world.After(random.Between(0, 1000) * kUsPerMs,
                [&ends = farEnds, place = PlaceOf(plan, channel), farEnd] { ends.Offer(place, farEnd); });
    callers.Dial(channel + 1, farEnd);
  }
}

void CLives::Provoke(EMoment moment) {
  world.After(0, [&ends = farEnds, place = PlaceOf(plan, 15)] { ends.Offer(place, SFarEndPlan()); });
  if (moment == EMoment::kChannelState) {
    world.After(kCallBeforeMs * kUsPerMs, [&card = sim.Card(0)] { card.Restart(); });
  }
}

void CLives::AwaitMoment(const SLifeEnd& end) {
  isThere.Reset();
  goesDown.Reset();
  if (end.moment != EMoment::kAnyTime) {
    armed = &end;
    Provoke(end.moment);
    isThere.WaitFor(static_cast<uint32_t>(kMomentMs));
    armed = nullptr;
  }
}

bool CLives::OnEvent(const SEvent& event) {
  const bool isMeant = armed != nullptr && IsOf(armed->moment, event.code);
  return !isMeant || HoldUp(event.channel);
}

void CLives::OnBlock(int32_t channel) {
  if (heldTrunk >= 0 && channel / ZELK_CHANNELS_PER_TRUNK == heldTrunk) {
    heldTrunk = -1;
    ZELK_Dial(channel, "5551000", nullptr);  // how long it takes is the other callback's matter
  }
  if (armed != nullptr && armed->moment == EMoment::kBlock) {
    HoldUp(channel);
  }
}

bool CLives::HoldUp(int32_t channel) {
  const SLifeEnd& end = *armed;
  const uint32_t shutdownsBefore = shutdowns;
  armed = nullptr;
  if (end.callsEverything) {
    CallEverything(channel);
  }
  if (end.dialsInBlock && IsOfSignalling(end.moment)) {
    heldTrunk = channel / ZELK_CHANNELS_PER_TRUNK;
    zelk::SleepMs(kBlocksMs);
  }
  isThere.Set();
  goesDown.Wait();
  zelk::SleepMs(static_cast<uint32_t>(end.callbackMs));
  while (isLocked) {
    isFree.Wait();
  }
  return shutdowns == shutdownsBefore && !app.IsDown();
}

void CLives::CallEverything(int32_t channel) {
  callers.Play(channel);
  checks.ReadInfo(channel);
  callers.StopPlay(channel);
  callers.Hangup(channel);
  checks.State(channel);
}

}  // namespace world
