// SPDX-License-Identifier: GPL-2.0-only
#include "world/world_card.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/clock.h"
#include "platform/thread.h"
#include "world/apart.h"
#include "world/application.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::ESimCallState;
using zelk::sim::CWorld;
using zelk::sim::EVerdict;
using zelk::sim::SOutcome;

constexpr int64_t kSoonMs = 2000;
constexpr int64_t kUpMs = 10'000;
constexpr int kSecondOfSound = 8000;

bool Contains(const Bytes& whole, const Bytes& part) {
  return cardsim::FindBytes(whole, part) >= 0;
}

// A card of one trunk, the library, and an application that makes calls in a thread of its own.
class CDay {
 public:
  explicit CDay(uint64_t seed) : world({.seed = seed}) {
    sim = MakeCards(world, WorldCards({1}));
    sim->Start();
  }

  SOutcome Run() {
    const SOutcome outcome = world.Run([this] { Main(); });
    sim->Stop();
    return outcome;
  }

 private:
  cardsim::CCard& Card() { return sim->Card(0); }

  void Main() {
    CApplication application(world);
    app = &application;
    sim->Card(0).OnCallArrived([this](const Call& call) { arrived = call; });
    ASSERT_TRUE(ZELK_Init());
    EXPECT_EQ(30, ZELK_GetChannelCount());
    EXPECT_TRUE(app->AwaitAllReady(kUpMs));
    zelk::CThread caller;
    ASSERT_TRUE(caller.Start("caller", [this] {
      CallOut();
      CallIn();
    }));
    EXPECT_TRUE(caller.JoinFor(60'000));
    ZELK_Shutdown();
    UnloadLibrary();
    EXPECT_EQ(0, ZELK_GetChannelCount());
    EXPECT_EQ(0U, Card().CallCount(0));
  }

  void CallOut() {
    constexpr int32_t kChannel = 4;
    EXPECT_TRUE(ZELK_OpenChannel(kChannel));
    EXPECT_TRUE(ZELK_Dial(kChannel, "0405556789", "8001000"));
    ASSERT_TRUE(app->AwaitEvent(kChannel, ZELK_EVENT_CONNECTED, kSoonMs));
    ASSERT_NE(nullptr, arrived);
    EXPECT_EQ("0405556789", arrived->Called());
    EXPECT_EQ(5, arrived->Timeslot());
    ExpectSound(kChannel, arrived);
    ExpectDigits(kChannel, arrived);
    EXPECT_TRUE(ZELK_Hangup(kChannel));
    EXPECT_TRUE(app->AwaitEvent(kChannel, ZELK_EVENT_DISCONNECTED, kSoonMs));
    EXPECT_EQ(16, app->LastParam(kChannel, ZELK_EVENT_DISCONNECTED));
    EXPECT_TRUE(arrived->Reached(ESimCallState::kEnded));
  }

  void CallIn() {
    constexpr int32_t kChannel = 15;  // timeslot 17
    EXPECT_TRUE(ZELK_OpenChannel(kChannel));
    const Call call = Card().PlaceCall({.timeslot = 17});
    ASSERT_TRUE(app->AwaitEvent(kChannel, ZELK_EVENT_INCOMING_CALL, kSoonMs));
    EXPECT_TRUE(ZELK_Answer(kChannel));
    ASSERT_TRUE(app->AwaitEvent(kChannel, ZELK_EVENT_CONNECTED, kSoonMs));
    ExpectSound(kChannel, call);
    call->Hangup(17);
    EXPECT_TRUE(app->AwaitEvent(kChannel, ZELK_EVENT_DISCONNECTED, kSoonMs));
    EXPECT_EQ(17, app->LastParam(kChannel, ZELK_EVENT_DISCONNECTED));
  }

  void ExpectSound(int32_t channel, const Call& call) {
    const Bytes own = cardsim::RenderTestPattern(kSecondOfSound, 1);
    const Bytes other = cardsim::RenderTestPattern(kSecondOfSound, 2);
    app->Record(channel);
    call->PlayBytes(other);
    EXPECT_TRUE(ZELK_PlayBuffer(channel, own.data(), static_cast<uint32_t>(own.size())));
    EXPECT_TRUE(app->AwaitEvent(channel, ZELK_EVENT_PLAY_DONE, kSoonMs));
    zelk::SleepMs(200);
    EXPECT_TRUE(Contains(call->Recorded(), own));
    EXPECT_TRUE(Contains(app->Recorded(channel), other));
    app->StopRecording(channel);
  }

  void ExpectDigits(int32_t channel, const Call& call) {
    constexpr const char* kDigits = "0123456789*#ABCD";
    call->SendDigits(kDigits);
    EXPECT_TRUE(app->AwaitEvent(channel, ZELK_EVENT_DTMF, 5000, 16));
    std::string heard;
    for (const SEvent& event : app->Events()) {
      heard += event.code == ZELK_EVENT_DTMF ? std::string(1, static_cast<char>(event.param)) : std::string();
    }
    EXPECT_EQ(kDigits, heard);
  }

  CWorld world;
  std::unique_ptr<cardsim::CSimulator> sim;
  CApplication* app = nullptr;
  Call arrived;
};

// Where it ended, its hash and its steps; with gtest's own words about what was wrong before it.
SApart DayOf(uint64_t seed) {
  return DoApart([seed] {
    const SOutcome outcome = CDay(seed).Run();
    const bool isRight = outcome.verdict == EVerdict::kEnded && !testing::Test::HasFailure();
    return (isRight ? "right " : "wrong " + outcome.report) + std::to_string(outcome.hash) + " after " +
           std::to_string(outcome.steps) + " steps and " + std::to_string(outcome.nowUs) + " us";
  });
}

TEST(WorldCard, ADayOfCallsIsExactInVirtualTime) {
  for (uint64_t seed = 1; seed <= 5; ++seed) {
    const SApart day = DayOf(seed);
    EXPECT_TRUE(day.isDone) << seed;
    EXPECT_EQ(0U, day.result.find("right ")) << seed << ": " << day.result;
  }
}

TEST(WorldCard, TheSameSeedIsTheSameDay) {
  const std::string first = DayOf(7).result;
  EXPECT_EQ(first, DayOf(7).result);
  EXPECT_NE(first, DayOf(8).result);
}

}  // namespace
}  // namespace world
