// SPDX-License-Identifier: GPL-2.0-only
#include "world/run.h"

#include <gtest/gtest.h>

namespace world {
namespace {

// Calls in both directions and nothing wrong.
SWorldPlan QuietPlan() {
  SWorldPlan plan;
  plan.seed = 5;
  plan.cards = {{2, 0}};
  plan.threads = 2;
  plan.manners = {SManner()};
  plan.lengthMs = 20'000;
  for (int i = 0; i < 6; ++i) {
    SFarEndPlan farEnd;
    farEnd.hangupAfterMs = 2500;
    farEnd.sendsDigits = i % 2 == 1;
    plan.offers.push_back({2000 * i, 0, i % 2, 4 + i, farEnd});
    plan.steps.push_back({2100 * i, i % 2, EStep::kDial, 30 * (i % 2) + 20 + i, farEnd});
  }
  return plan;
}

std::string FailuresOf(const SWorldPlan& plan) {
  std::string text;
  for (const std::string& failure : RunWorldApart(plan).failures) {
    text += failure + "\n";
  }
  return text;
}

TEST(Run, AQuietWorldHasNoFailures) {
  const SRunResult result = RunWorldApart(QuietPlan());
  EXPECT_EQ("", FailuresOf(QuietPlan()));
  EXPECT_EQ(16U, result.calls);
  EXPECT_EQ(16U, result.comparedCalls);
}

// Whatever callback is under way when the library is shut down, and however long: the next life is as the first.
TEST(Run, ALibraryThatIsShutDownInACallbackLivesAgain) {
  for (int moment = 0; moment < kMoments; ++moment) {
    for (const bool isUnderLock : {false, true}) {
      SWorldPlan plan = QuietPlan();
      plan.stopTrials = 2;
      plan.watchesLog = true;
      plan.lives.push_back({.afterMs = 700,
                            .moment = static_cast<EMoment>(moment),
                            .callbackMs = isUnderLock ? 0 : 4000,
                            .isUnderLock = isUnderLock,
                            .callsEverything = true});
      EXPECT_EQ("", FailuresOf(plan)) << moment << ' ' << isUnderLock;
    }
  }
}

// The first minute of a seed's world.
SWorldPlan Minute(uint64_t seed) {
  constexpr int64_t kMinuteMs = 60'000;
  SWorldPlan plan = DrawPlan(seed);
  plan.lengthMs = kMinuteMs;
  const auto isLater = [](const auto& part) { return part.atMs > kMinuteMs; };
  std::erase_if(plan.faults, isLater);
  std::erase_if(plan.offers, isLater);
  std::erase_if(plan.steps, isLater);
  return plan;
}

// A shut-down gives up on callbacks that hang: here on one that has a trunk, and on one in a dial that waits for it.
TEST(Run, AnExportThatIsKeptOverAShutDownFindsItsChannel) {
  for (const EMoment moment : {EMoment::kIncoming, EMoment::kDisconnected, EMoment::kChannelState}) {
    SWorldPlan plan = QuietPlan();
    plan.lives.push_back({.afterMs = 700, .moment = moment, .isUnderLock = true, .dialsInBlock = true});
    EXPECT_EQ("", FailuresOf(plan)) << static_cast<int>(moment);
  }
}

TEST(Run, ASeedIsOneRunForEver) {
  for (uint64_t seed = 2; seed < 6; ++seed) {
    const SRunResult first = RunWorldApart(Minute(seed));
    const SRunResult second = RunWorldApart(Minute(seed));
    EXPECT_EQ(first.ToText(), second.ToText()) << seed;
    EXPECT_NE(0U, first.hash);
  }
}

struct SPlantedCase {
  const char* name;
  EPlanted planted;
  const char* failure;
};

class Planted : public testing::TestWithParam<SPlantedCase> {};

TEST_P(Planted, IsFound) {
  SWorldPlan plan = QuietPlan();
  plan.planted = GetParam().planted;
  plan.stopTrials = 2;
  plan.watchesLog = true;
  plan.lives.push_back({.afterMs = 500});
  const std::string failures = FailuresOf(plan);
  EXPECT_NE(std::string::npos, failures.find(GetParam().failure)) << failures;
}

INSTANTIATE_TEST_SUITE_P(
    Faults, Planted,
    testing::Values(SPlantedCase{"FarSound", EPlanted::kFarSound, "the application does not hear"},
                    SPlantedCase{"OwnSound", EPlanted::kOwnSound, "the far end does not hear"},
                    SPlantedCase{"Digit", EPlanted::kDigit, "digits 159D*0#7A26B48C3 heard as 59D*0#7A26B48C3"},
                    SPlantedCase{"SwappedCalls", EPlanted::kSwappedCalls, "connected with "},
                    SPlantedCase{"SlowCallback", EPlanted::kSlowCallback, "took "},
                    SPlantedCase{"DeadCard", EPlanted::kDeadCard, "not ready 15 s after the last fault"},
                    SPlantedCase{"HungThread", EPlanted::kHungThread, "a thread of the application does not end"},
                    SPlantedCase{"Socket", EPlanted::kSocket, "sockets left behind: 1"},
                    SPlantedCase{"LateReplies", EPlanted::kLateReplies, "replies late"},
                    SPlantedCase{"LeftCall", EPlanted::kLeftCall, "calls left at the exchange"},
                    SPlantedCase{"EatenBlock", EPlanted::kEatenBlock, "of what was played after a stop"},
                    SPlantedCase{"LostLine", EPlanted::kLostLine, "not in the log after half a second"},
                    SPlantedCase{"TwoOrders", EPlanted::kTwoOrders, "locks are taken in two orders"},
                    SPlantedCase{"EarlyDown", EPlanted::kEarlyDown, "while the library is down"}),
    [](const testing::TestParamInfo<SPlantedCase>& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace world
