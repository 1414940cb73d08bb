// SPDX-License-Identifier: GPL-2.0-only
#include "world/many_calls.h"

#include <malloc.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "world/application.h"
#include "world/world_card.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using cardsim::Call;
using zelk::sim::CWorld;
using zelk::sim::EVerdict;
using zelk::sim::SOutcome;

constexpr uint64_t kWarmUpCalls = 1000;
constexpr int64_t kMostGrowth = 64 << 10;  // what is under way: sound, messages, the log
constexpr int64_t kUpMs = 10'000;
constexpr int64_t kMostCallMs = 1000;  // of one channel, with all others busy
constexpr int kDialledChannels = 15;   // timeslots 1 to 15; the exchange has the others
constexpr int32_t kChannels = ZELK_CHANNELS_PER_TRUNK;
constexpr int kNormalClearing = 16;

// Bytes that somebody holds, large blocks included.
int64_t BytesInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<int64_t>(heap.uordblks + heap.hblkhd);
}

zelk::sim::SWorldOptions OptionsOf(uint64_t seed) {
  zelk::sim::SWorldOptions options;
  options.seed = seed;
  options.mostSteps = UINT64_MAX;
  options.mostUs = INT64_MAX;
  return options;
}

cardsim::SSimulatorConfig OneTrunk() {
  cardsim::SSimulatorConfig config = WorldCards({1});
  config.keepHistory = false;
  return config;
}

// Job: the application and the exchange's people. Thread: the library's, in callbacks; OnEnded and Offer are acts.
class CBusyTrunk {
 public:
  explicit CBusyTrunk(uint64_t seed)
      : world(OptionsOf(seed)), sim(MakeCards(world, OneTrunk())), heard(kChannels), begun(kChannels) {}

  SRunResult Run(uint64_t calls);
  bool HasEnded() const { return hasEnded; }

 private:
  void Main(uint64_t calls);
  bool Round(CApplication& app, uint64_t calls);
  void OnEvent(const SEvent& event);
  void OnCallOver(const SEvent& event);
  void Offer(int32_t channel);
  void OnEnded(const Call& call);
  bool MayBegin(int32_t channel);
  void Require(bool holds, const std::string& what);

  CWorld world;
  std::unique_ptr<cardsim::CSimulator> sim;
  std::vector<std::vector<uint32_t>> heard;  // by channel: the codes of its call
  std::vector<uint64_t> begun;               // by channel: calls of this round
  uint64_t wanted = 0;                       // of each channel
  uint64_t open = 0;                         // calls that have begun and not ended
  SRunResult result;
  bool hasEnded = false;
};

void CBusyTrunk::Require(bool holds, const std::string& what) {
  if (!holds) {
    result.failures.push_back(what);
  }
}

SRunResult CBusyTrunk::Run(uint64_t calls) {
  sim->Card(0).OnCallEnded([this](const Call& call) { OnEnded(call); });
  sim->Start();
  const SOutcome outcome = world.Run([&] { Main(calls); });
  hasEnded = outcome.verdict == EVerdict::kEnded;
  Require(hasEnded, outcome.report);
  result.hash = outcome.hash;
  result.steps = outcome.steps;
  result.virtualMs = outcome.nowUs / zelk::sim::kUsPerMs;
  if (hasEnded) {
    Require(sim->Card(0).CallCount(0) == 0, "the exchange has calls left");
    sim->Stop();
  }
  return result;
}

void CBusyTrunk::Main(uint64_t calls) {
  CApplication app(world);
  Require(ZELK_Init() != 0 && app.AwaitAllReady(kUpMs), "the trunk does not come up");
  for (int32_t channel = 0; channel < kChannels; ++channel) {
    ZELK_OpenChannel(channel);
  }
  app.onEvent = [&](const SEvent& event) {
    OnEvent(event);
    app.ForgetEvents();
  };
  if (result.failures.empty() && Round(app, kWarmUpCalls)) {
    const int64_t before = BytesInUse();
    Round(app, calls - std::min(calls, result.calls));
    result.grownBytes = BytesInUse() - before;
    Require(result.grownBytes <= kMostGrowth, "memory has grown by " + std::to_string(result.grownBytes) + " bytes");
  }
  ZELK_Shutdown();
  UnloadLibrary();
}

// So many calls, spread over the channels. False when they did not all end.
bool CBusyTrunk::Round(CApplication& app, uint64_t calls) {
  wanted = (calls + kChannels - 1) / kChannels;
  std::fill(begun.begin(), begun.end(), 0);
  for (int32_t channel = 0; channel < kDialledChannels && MayBegin(channel); ++channel) {
    ZELK_Dial(channel, "5551234", "100");
  }
  world.After(0, [this] {
    for (int32_t channel = kDialledChannels; channel < kChannels && MayBegin(channel); ++channel) {
      Offer(channel);
    }
  });
  const auto mostMs = static_cast<int64_t>(wanted) * kMostCallMs + kUpMs;
  const bool areOver = app.Await([this] { return open == 0 || !result.failures.empty(); }, mostMs);
  Require(areOver, std::to_string(open) + " calls do not end");
  Require(app.AwaitAllReady(kMostCallMs), "a channel is not ready after its last call");
  return result.failures.empty();
}

bool CBusyTrunk::MayBegin(int32_t channel) {
  uint64_t& count = begun[static_cast<size_t>(channel)];
  if (count == wanted || !result.failures.empty()) {
    return false;
  }
  ++count;
  ++open;
  return true;
}

void CBusyTrunk::OnEvent(const SEvent& event) {
  if (event.code != ZELK_EVENT_CHANNEL_STATE) {
    heard[static_cast<size_t>(event.channel)].push_back(event.code);
  }
  if (event.code == ZELK_EVENT_INCOMING_CALL) {
    ZELK_Answer(event.channel);
  } else if (event.code == ZELK_EVENT_CONNECTED && event.channel < kDialledChannels) {
    ZELK_Hangup(event.channel);
  } else if (event.code == ZELK_EVENT_DISCONNECTED) {
    OnCallOver(event);
  }
}

void CBusyTrunk::OnCallOver(const SEvent& event) {
  static const std::vector<uint32_t> kDialled{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_CONNECTED,
                                              ZELK_EVENT_DISCONNECTED};
  static const std::vector<uint32_t> kOffered{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED};
  std::vector<uint32_t>& codes = heard[static_cast<size_t>(event.channel)];
  const bool isDialled = event.channel < kDialledChannels;
  std::string text;
  for (const uint32_t code : codes) {
    text += " " + std::to_string(code);
  }
  Require(codes == (isDialled ? kDialled : kOffered) && event.param == kNormalClearing,
          "channel " + std::to_string(event.channel) + ", call " + std::to_string(result.calls) + ": events" + text +
              ", cause " + std::to_string(event.param));
  codes.clear();
  ++result.calls;
  --open;
  if (isDialled && MayBegin(event.channel)) {
    Require(ZELK_Dial(event.channel, "5551234", "100") != 0, "a dial is refused");
  }
}

void CBusyTrunk::Offer(int32_t channel) {
  cardsim::SCallRequest request;
  request.timeslot = channel + 2;  // behind the signalling timeslot
  request.farEnd.hangupAfter = std::chrono::milliseconds(0);
  sim->Card(0).PlaceCall(std::move(request));
}

void CBusyTrunk::OnEnded(const Call& call) {
  const int32_t channel = call->Timeslot() - 2;
  if (call->Timeslot() > kDialledChannels + 1 && MayBegin(channel)) {
    world.After(0, [this, channel] { Offer(channel); });
  }
}

}  // namespace

// What has been left where it stood cannot be taken apart.
SRunResult RunManyCalls(uint64_t seed, uint64_t calls) {
  auto trunk = std::make_unique<CBusyTrunk>(seed);
  SRunResult result = trunk->Run(calls);
  if (!trunk->HasEnded()) {
    (void)trunk.release();
  }
  return result;
}

}  // namespace world
