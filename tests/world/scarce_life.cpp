// SPDX-License-Identifier: GPL-2.0-only
#include "world/scarce_life.h"

#include <memory>
#include <string>
#include <utility>

#include "platform/clock.h"
#include "platform/simulated/files.h"
#include "platform/simulated/network.h"
#include "platform/simulated/tasks/side.h"
#include "support/allocation_probe.h"
#include "support/wav_bytes.h"
#include "world/application.h"
#include "world/world_card.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using cardsim::Call;
using zelk::sim::CBound;
using zelk::sim::CSide;
using zelk::sim::CWorld;
using zelk::sim::EVerdict;
using zelk::sim::SOutcome;

constexpr int64_t kUpMs = 10'000;
constexpr int64_t kSoonMs = 2000;
constexpr int64_t kMostExportUs = 30 * zelk::sim::kUsPerSecond;
constexpr int32_t kDialled = 4;
constexpr int32_t kOffered = 15;  // timeslot 17
constexpr int kOfferedTimeslot = 17;
constexpr size_t kPlayBytes = 1600;
constexpr uint32_t kALaw = 6;  // as RIFF numbers it
constexpr const char* kSoundFile = "/world/sound.wav";

bool IsAllocationToFail() {
  CWorld* const world = CWorld::Current();
  return world != nullptr && world->Scheduler().IsInLibrary() && world->Scarcity().IsAllocationToFail();
}

// Job: the two lives. Thread: tasks of the world.
class CTwoLives {
 public:
  CTwoLives(uint64_t seed, const SScarceAllocations& toFail)
      : failing(toFail), world({.seed = seed}), sim(MakeCards(world, WorldCards({1}))) {
    world.Scarcity().failingAllocation = failing.first;
    world.Scarcity().failingInARow = failing.count;
    world.Files().Put("/world/libZelkApi.ini", "[Debug]\nLevel=0\n[General]\nHdlcLog=1\nEchoCanceller=1\n");
    const wav::Bytes file = wav::File(kALaw, 8, cardsim::RenderTestPattern(kPlayBytes, 2));
    world.Files().Put(kSoundFile, std::string(file.begin(), file.end()));
  }

  SRunResult Run();
  bool HasEnded() const { return hasEnded; }

 private:
  void Main();
  void Live(CApplication& app, bool isSound);
  void CallOut(CApplication& app, bool isSound);
  void CallIn(CApplication& app, bool isSound);
  void Require(bool holds, const std::string& what);

  // An export, as the application calls it.
  template <class Export>
  auto In(const char* name, Export body) {
    const CBound bound(world, name, kMostExportUs);
    const CSide library(true);
    return body();
  }

  const SScarceAllocations failing;
  CWorld world;
  std::unique_ptr<cardsim::CSimulator> sim;
  SRunResult result;
  bool hasEnded = false;
};

void CTwoLives::Require(bool holds, const std::string& what) {
  if (!holds) {
    result.failures.push_back(what);
  }
}

SRunResult CTwoLives::Run() {
  support::SetAllocationJudge(&IsAllocationToFail);
  sim->Start();
  const SOutcome outcome = world.Run([this] { Main(); });
  support::SetAllocationJudge(nullptr);
  hasEnded = outcome.verdict == EVerdict::kEnded;
  Require(hasEnded, outcome.report);
  result.hash = outcome.hash;
  result.steps = outcome.steps;
  result.virtualMs = outcome.nowUs / zelk::sim::kUsPerMs;
  if (hasEnded) {
    Require(world.Network().OpenSockets() == 0, "sockets are left");
    Require(sim->Card(0).CallCount(0) == 0, "the exchange has calls left");
    sim->Stop();
  }
  return result;
}

void CTwoLives::Main() {
  CApplication app(world);
  Live(app, false);
  result.allocations = failing.first - std::exchange(world.Scarcity().failingAllocation, 0);
  Live(app, true);
  UnloadLibrary();
}

// isSound: nothing may go wrong.
void CTwoLives::Live(CApplication& app, bool isSound) {
  const bool hasBegun = In("ZELK_Init", [] { return ZELK_Init() != 0; });
  Require(hasBegun || !isSound, "ZELK_Init fails");
  const bool isUp = hasBegun && app.AwaitAllReady(kUpMs);
  Require(isUp || !isSound, "not ready after the start");
  if (isUp) {
    CallOut(app, isSound);
    CallIn(app, isSound);
  }
  In("ZELK_Shutdown", [] {
    ZELK_Shutdown();
    return true;
  });
  Require(ZELK_GetChannelCount() == 0, "channels after the shut-down");
}

void CTwoLives::CallOut(CApplication& app, bool isSound) {
  const size_t connected = app.Count(kDialled, ZELK_EVENT_CONNECTED);
  const size_t disconnected = app.Count(kDialled, ZELK_EVENT_DISCONNECTED);
  In("ZELK_OpenChannel", [] { return ZELK_OpenChannel(kDialled); });
  In("ZELK_Dial", [] { return ZELK_Dial(kDialled, "5551234", "100"); });
  const bool isConnected = app.AwaitEvent(kDialled, ZELK_EVENT_CONNECTED, kSoonMs, connected + 1);
  Require(isConnected || !isSound, "a dialled call is not connected");
  const cardsim::Bytes sound = cardsim::RenderTestPattern(kPlayBytes, 1);
  In("ZELK_PlayBuffer", [&] { return ZELK_PlayBuffer(kDialled, sound.data(), static_cast<uint32_t>(sound.size())); });
  In("ZELK_PlayFile", [] { return ZELK_PlayFile(kDialled, kSoundFile); });
  zelk::SleepMs(500);
  In("ZELK_StopPlay", [] { return ZELK_StopPlay(kDialled); });
  In("ZELK_Hangup", [] { return ZELK_Hangup(kDialled); });
  const bool isOver = app.AwaitEvent(kDialled, ZELK_EVENT_DISCONNECTED, kSoonMs, disconnected + 1);
  Require(isOver || !isSound, "a dialled call does not end");
  result.calls += isConnected && isOver ? 1 : 0;
}

void CTwoLives::CallIn(CApplication& app, bool isSound) {
  const size_t offered = app.Count(kOffered, ZELK_EVENT_INCOMING_CALL);
  const size_t connected = app.Count(kOffered, ZELK_EVENT_CONNECTED);
  const size_t disconnected = app.Count(kOffered, ZELK_EVENT_DISCONNECTED);
  In("ZELK_OpenChannel", [] { return ZELK_OpenChannel(kOffered); });
  const Call call = sim->Card(0).PlaceCall({.timeslot = kOfferedTimeslot});
  Require(app.AwaitEvent(kOffered, ZELK_EVENT_INCOMING_CALL, kSoonMs, offered + 1) || !isSound,
          "an offered call does not come");
  In("ZELK_Answer", [] { return ZELK_Answer(kOffered); });
  const bool isConnected = app.AwaitEvent(kOffered, ZELK_EVENT_CONNECTED, kSoonMs, connected + 1);
  Require(isConnected || !isSound, "an offered call is not connected");
  call->Hangup(17);
  const bool isOver = app.AwaitEvent(kOffered, ZELK_EVENT_DISCONNECTED, kSoonMs, disconnected + 1);
  Require(isOver || !isSound, "an offered call does not end");
  result.calls += isConnected && isOver ? 1 : 0;
}

}  // namespace

// What has been left where it stood cannot be taken apart.
SRunResult RunScarceLife(uint64_t seed, const SScarceAllocations& failing) {
  auto lives = std::make_unique<CTwoLives>(seed, failing);
  SRunResult result = lives->Run();
  if (!lives->HasEnded()) {
    (void)lives.release();
  }
  return result;
}

}  // namespace world
