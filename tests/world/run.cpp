// SPDX-License-Identifier: GPL-2.0-only
#include "world/run.h"

#include <algorithm>
#include <array>

#include "platform/clock.h"
#include "platform/mutex.h"
#include "platform/simulated/files.h"
#include "platform/simulated/network.h"
#include "platform/socket.h"
#include "world/callers.h"
#include "world/last_calls.h"
#include "world/lives.h"
#include "world/log_watch.h"
#include "world/wire_capture.h"
#include "world/world_card.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using zelk::sim::CWorld;
using zelk::sim::EVerdict;
using zelk::sim::kUsPerMs;
using zelk::sim::SOutcome;

constexpr int64_t kSlowReadyMs = 60'000;  // layer 2 has been lost, and calls that only timers end
constexpr int64_t kLookMs = 100;

zelk::sim::SWorldOptions OptionsOf(const SWorldPlan& plan) {
  zelk::sim::SWorldOptions options;
  options.seed = plan.seed;
  options.policy = static_cast<zelk::sim::EPolicy>(plan.policy);
  options.switchPerMillion = plan.switchPerMillion;
  options.stallPerMillion = plan.stallPerMillion;
  options.watchesLocks = true;
  return options;
}

cardsim::SSimulatorConfig CardsOf(const SWorldPlan& plan) {
  std::vector<int> trunks;
  for (const SCardPlan& card : plan.cards) {
    trunks.push_back(card.trunks);
  }
  cardsim::SSimulatorConfig config = WorldCards(trunks);
  config.keepHistory = false;
  for (size_t i = 0; i < config.cards.size(); ++i) {
    config.cards[i].framesPerPacket = plan.cards[i].framesPerPacket;
    if (plan.planted == EPlanted::kLateReplies) {
      config.cards[i].lateAfter = std::chrono::milliseconds(0);
    }
    for (int trunk = 0; plan.isNetworkSide && trunk < trunks[i]; ++trunk) {
      config.cards[i].roles[trunk].userSide = true;
    }
  }
  return config;
}

SBounds BoundsOf(const SWorldPlan& plan) {
  SBounds bounds;
  bounds.cards = static_cast<int>(plan.cards.size());
  bounds.trunks = plan.Trunks();
  for (const SManner& manner : plan.manners) {
    bounds.callbackMs = std::max(bounds.callbackMs, manner.callbackMs);
  }
  return bounds;
}

// Everything in one world, in the order in which it is made.
class CScene {
 public:
  explicit CScene(const SWorldPlan& worldPlan)
      : plan(worldPlan),
        world(OptionsOf(worldPlan)),
        sim(MakeCards(world, CardsOf(worldPlan))),
        checks(world, BoundsOf(worldPlan)),
        farEnds(world, *sim, worldPlan),
        faults(world, *sim, worldPlan),
        channels(worldPlan.Trunks() * ZELK_CHANNELS_PER_TRUNK) {}

  // Null where it is to be written nowhere.
  std::unique_ptr<CWireCapture> Capture(const SWireFile& wire) {
    return wire.path.empty() ? nullptr : std::make_unique<CWireCapture>(world, wire);
  }
  SRunResult Run();
  bool HasEnded() const { return hasEnded; }

 private:
  void Main();
  void Live(CApplication& app);
  void LiveAgain(CApplication& app);
  void Plant(CWorkers& workers);
  void Settle();
  void CheckEnd();
  void CheckReplies(size_t card);
  std::string NotReady();
  void SleepUntil(int64_t us);

  const SWorldPlan& plan;
  CWorld world;
  std::unique_ptr<cardsim::CSimulator> sim;
  CChecks checks;
  CFarEnds farEnds;
  CFaultDriver faults;
  const int32_t channels;
  int64_t baseUs = 0;
  std::unique_ptr<CCallWatch> watch;
  std::unique_ptr<CCallers> callers;
  std::unique_ptr<CLogWatch> logWatch;
  SRunResult result;
  bool hasEnded = false;
  zelk::CEvent nothing;  // never set
  std::array<zelk::CMutex, 2> locks;
  zelk::CSocket left;
};

SRunResult CScene::Run() {
  if (plan.isNetworkSide) {
    world.Files().Put("/world/libZelkApi.ini", "[General]\nClientType=1\n");
  }
  sim->Start();
  const SOutcome outcome = world.Run([this] { Main(); });
  result.failures = checks.Failures();
  if (outcome.verdict != EVerdict::kEnded) {
    result.failures.push_back(outcome.report);
  }
  result.hash = outcome.hash;
  result.steps = outcome.steps;
  result.virtualMs = outcome.nowUs / kUsPerMs;
  result.calls = farEnds.Calls();
  if (!result.failures.empty()) {
    for (const std::string& name : world.Files().Names()) {
      result.log += name.ends_with(".log") ? world.Files().Read(name).value_or("") : "";
    }
  }
  hasEnded = outcome.verdict == EVerdict::kEnded;
  if (hasEnded) {
    CheckEnd();
    result.failures = checks.Failures();
  }
  return result;
}

void CScene::Main() {
  CApplication app(world);
  checks.SetChannels(channels, plan.isNetworkSide, plan.HasSlowCallbacks());
  app.onEvent = [this](const SEvent& event) { checks.OnEvent(event); };
  checks.Require(checks.Init(), "ZELK_Init has failed");
  checks.Require(ZELK_GetChannelCount() == channels, "channels: " + std::to_string(ZELK_GetChannelCount()));
  checks.Require(app.AwaitAllReady(kReadyMs), "not ready after the start:" + NotReady());
  if (checks.Failures().empty()) {
    Live(app);
  }
  checks.Shutdown();
  app.SetDown(true);
  checks.Require(ZELK_GetChannelCount() == 0, "channels after the shut-down");
  UnloadLibrary();
  if (logWatch != nullptr) {
    logWatch->CheckFile();
  }
  result.events = app.Events().size();
  if (watch != nullptr) {
    result.comparedCalls = watch->ComparedCalls();
  }
  if (!checks.Failures().empty()) {
    for (const SEvent& event : app.Events()) {
      result.eventText += ToText(event) + "\n";
    }
  }
}

void CScene::Live(CApplication& app) {
  CWorkers workers(world, plan.threads);
  watch = std::make_unique<CCallWatch>(world, plan, checks, app, farEnds, faults);
  callers = std::make_unique<CCallers>(world, plan, checks, farEnds, *watch, workers);
  for (int32_t channel = 0; channel < channels; ++channel) {
    checks.Open(channel);
  }
  app.onEvent = [this](const SEvent& event) { callers->OnEvent(event); };
  farEnds.onEnded = [this](int32_t channel, const SFarCall& far) { watch->OnFarEnded(channel, far); };
  faults.onOdd = [this](int card, int trunk) {
    for (int timeslot = 1; timeslot < 32; ++timeslot) {
      checks.Grammar(ChannelAt(plan, {card, trunk, timeslot})).SetOdd();
    }
  };
  baseUs = world.NowUs();
  faults.Begin(baseUs);
  farEnds.BeginOffers(baseUs);
  callers->BeginSteps(baseUs);
  Plant(workers);
  if (plan.watchesLog) {
    logWatch = std::make_unique<CLogWatch>(world, checks, plan);
    logWatch->Begin();
  }
  SleepUntil(baseUs + plan.lengthMs * kUsPerMs);
  callers->Rest();
  checks.Require(workers.Join(60'000), "a thread of the application does not end");
  Settle();
  if (logWatch != nullptr) {
    logWatch->StartNoMore();
  }
  LiveAgain(app);
  CLastCalls(world, plan, checks, app, farEnds, *callers).Try();
  if (logWatch != nullptr) {
    logWatch->End();
  }
}

void CScene::LiveAgain(CApplication& app) {
  if (plan.lives.empty()) {
    return;
  }
  CLives lives(world, plan, checks, app, *sim, farEnds, faults, *watch, *callers);
  app.onOddCallback = [this](const std::string& what) { checks.Fail("a callback comes that must not: " + what); };
  app.onEvent = [this, &lives](const SEvent& event) {
    if (lives.OnEvent(event)) {
      callers->OnEvent(event);
    }
  };
  app.onPlay = [&lives](uint32_t channel, uint8_t*, uint32_t) { lives.OnBlock(static_cast<int32_t>(channel)); };
  lives.Run();
  app.onPlay = nullptr;
  app.onEvent = [this](const SEvent& event) { callers->OnEvent(event); };
}

void CScene::Plant(CWorkers& workers) {
  switch (plan.planted) {
    case EPlanted::kDeadCard:
      sim->Card(0).SetControlSilent(true);
      break;
    case EPlanted::kHungThread:
      workers.Do(0, baseUs, [this] { nothing.Wait(); });
      break;
    case EPlanted::kTwoOrders:
      for (const bool isOther : {false, true}) {
        workers.Do(0, baseUs + 5000 * kUsPerMs, [this, isOther]() ZELK_NO_THREAD_SAFETY_ANALYSIS {
          const zelk::CScopedLock first(isOther ? locks[1] : locks[0]);
          const zelk::CScopedLock second(isOther ? locks[0] : locks[1]);
        });
      }
      break;
    case EPlanted::kSocket:
      left.OpenUdp();
      break;
    default:
      break;
  }
}

void CScene::SleepUntil(int64_t us) {
  if (us > world.NowUs()) {
    zelk::SleepMs(static_cast<uint32_t>((us - world.NowUs() + kUsPerMs - 1) / kUsPerMs));
  }
}

std::string CScene::NotReady() {
  std::string text;
  for (int32_t channel = 0; channel < ZELK_GetChannelCount(); ++channel) {
    if (const uint32_t state = checks.State(channel); state != ZELK_CHANNEL_READY) {
      text += " " + std::to_string(channel) + (state == ZELK_CHANNEL_DOWN ? "D" : "U");
    }
  }
  return text;
}

void CScene::Settle() {
  SleepUntil(baseUs + plan.LastFaultMs() * kUsPerMs);
  callers->ClearAll();
  world.After(0, [this] {
    farEnds.Rest();
    for (size_t card = 0; plan.HasSlowCallbacks() && card < sim->CardCount(); ++card) {
      sim->Card(card).Announce();  // a callback of more than a second may have cost its connection
    }
  });
  const int64_t endUs = world.NowUs() + (plan.HasSlowCallbacks() ? kSlowReadyMs : kReadyMs) * kUsPerMs;
  std::string notReady = NotReady();
  while (!notReady.empty() && world.NowUs() < endUs) {
    zelk::SleepMs(kLookMs);
    notReady = NotReady();
  }
  checks.Require(notReady.empty(), "not ready 15 s after the last fault:" + notReady);
  SleepUntil(endUs);
}

void CScene::CheckEnd() {
  checks.Require(world.Network().OpenSockets() == 0,
                 "sockets left behind: " + std::to_string(world.Network().OpenSockets()));
  for (size_t card = 0; card < sim->CardCount(); ++card) {
    for (int trunk = 0; trunk < sim->Card(card).TrunkCount(); ++trunk) {
      const size_t calls = sim->Card(card).CallCount(trunk) + (plan.planted == EPlanted::kLeftCall ? 1 : 0);
      checks.Require(calls == 0, "calls left at the exchange: " + std::to_string(calls));
    }
    CheckReplies(card);
  }
  sim->Stop();
}

void CScene::CheckReplies(size_t card) {
  const cardsim::SAudioStatistics seen = sim->Card(card).Audio().Statistics();
  const std::string name = "card " + std::to_string(card) + ": ";
  checks.Require(seen.replies > 0, name + "no replies");
  const bool isSlow = plan.HasLateReplies();
  checks.Require(isSlow || seen.missing == 0, name + "replies missing: " + std::to_string(seen.missing));
  checks.Require(isSlow || seen.late == 0, name + "replies late: " + std::to_string(seen.late));
  checks.Require(seen.wrongSize == 0, name + "replies of a wrong size: " + std::to_string(seen.wrongSize));
  checks.Require(seen.sequenceGaps == 0, name + "gaps in the replies: " + std::to_string(seen.sequenceGaps));
  checks.Require(seen.badMagic == 0, name + "replies without their mark: " + std::to_string(seen.badMagic));
  checks.Require(isSlow || seen.surplus == 0, name + "replies to nothing: " + std::to_string(seen.surplus));
}

}  // namespace

// A scene whose tasks have been left where they stood cannot be taken apart.
SRunResult RunWorld(const SWorldPlan& plan, const SWireFile& wire) {
  auto scene = std::make_unique<CScene>(plan);
  const std::unique_ptr<CWireCapture> capture = scene->Capture(wire);
  SRunResult result = scene->Run();
  if (!scene->HasEnded()) {
    (void)scene.release();
  }
  return result;
}

}  // namespace world
