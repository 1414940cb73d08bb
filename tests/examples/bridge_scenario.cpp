// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <map>

#include "examples/example_fixture.h"

// A bridge, those who call and the one who is called: both talk, tones come before the answer, either hangs up, the
// called is busy, a trunk is lost.
namespace {

using cardsim::EClearedBy;
using cardsim::ESimCallState;
using cardsim::SAnswerPlan;

class Bridge : public CExampleTest {
 protected:
  const std::string number = "0405556789";

  struct SBridge {
    Call caller;
    Call called;
  };

  // The caller is answered only when the other one answers, or has something to be heard before.
  SBridge Offer(cardsim::SCallRequest request) {
    const Call caller = Card().PlaceCall(std::move(request));
    const Call called = Card().WaitCall(kSoon);
    EXPECT_NE(called, nullptr);
    return {caller, called};
  }

  SBridge ConnectBoth(const cardsim::SCallRequest& request) {
    const SBridge bridge = Offer(request);
    EXPECT_TRUE(bridge.caller->WaitState(ESimCallState::kConnected, kSoon));
    EXPECT_TRUE(bridge.called->WaitState(ESimCallState::kConnected, kSoon));
    return bridge;
  }

  // Sound that crosses two channels may lose a block on a busy machine, but hardly more: how many of its blocks, in
  // their order, were heard.
  static size_t BlocksHeard(const Bytes& sound, const Bytes& heard) {
    constexpr std::ptrdiff_t kBlock = 160;
    size_t count = 0;
    auto from = heard.begin();
    for (auto block = sound.begin(); sound.end() - block >= kBlock; block += kBlock) {
      const auto at = std::search(from, heard.end(), block, block + kBlock);
      if (at != heard.end()) {
        ++count;
        from = at + kBlock;
      }
    }
    return count;
  }

  static void ExpectHears(const Call& call, const Bytes& sound) {
    const Bytes end(sound.end() - 160, sound.end());
    EXPECT_TRUE(call->Heard()->WaitContains(end, kSoon)) << "to its end";
    EXPECT_GE(BlocksHeard(sound, call->Recorded()), sound.size() / 160 * 9 / 10);
  }

  static void ExpectBothTalk(const SBridge& bridge, std::uint32_t seed = 1) {
    const Bytes question = Sound(600, 2 * seed);
    const Bytes reply = Sound(600, 2 * seed + 1);
    bridge.caller->PlayBytes(question);
    bridge.called->PlayBytes(reply);
    ExpectHears(bridge.called, question);
    ExpectHears(bridge.caller, reply);
  }

  static void ExpectEndedByBridge(const Call& call) {
    EXPECT_TRUE(call->WaitEnded(kSoon));
    EXPECT_EQ(call->ClearedBy(), EClearedBy::kLibrary);
  }
};

TEST_F(Bridge, SaysWhatItCannotDoWithout) {
  ExpectRefused({}, 2, "usage: ");
  ExpectRefused({"my friend"}, 2, "usage: ");
  ExpectRefused({number}, 1, "no card found");
}

TEST_F(Bridge, CarriesWhatBothSayUntilEitherHangsUp) {
  ASSERT_NO_FATAL_FAILURE(StartServing({number}));
  const SBridge first = ConnectBoth({.timeslot = 1, .calling = "0301"});
  EXPECT_EQ(first.called->Called(), number);
  EXPECT_EQ(first.called->Calling(), "0301");
  ExpectBothTalk(first);
  first.caller->Hangup();
  ExpectEndedByBridge(first.called);
  EXPECT_TRUE(example->WaitLine(": ended, ", kSoon, 2));
  // The same channels once more, and nothing of the first bridge is left in them.
  const SBridge second = ConnectBoth({.timeslot = 1, .calling = "0302"});
  EXPECT_EQ(second.called->Timeslot(), first.called->Timeslot());
  ExpectBothTalk(second, 2);
  second.called->Hangup();
  ExpectEndedByBridge(second.caller);
  EXPECT_TRUE(example->WaitLine(": ended, ", kSoon, 4));
  EndInGoodOrder();
}

TEST_F(Bridge, LetsTheCallerHearWhatComesBeforeTheAnswer) {
  ASSERT_NO_FATAL_FAILURE(StartServing({number}));
  SAnswerPlan plan = SAnswerPlan::NeverAnswer();
  plan.progressAfter = std::chrono::milliseconds(0);
  plan.alertAfter.reset();
  plan.farEnd.playFrom = plan.farEnd.recordFrom = cardsim::EAudioFrom::kSetup;
  Card().SetAnswerPlan(plan);
  const SBridge bridge = Offer({.timeslot = 1});
  EXPECT_TRUE(bridge.caller->WaitState(ESimCallState::kConnected, kSoon));
  const Bytes tones = Sound(600, 1);
  bridge.called->PlayBytes(tones);
  ExpectHears(bridge.caller, tones);
  EXPECT_FALSE(bridge.called->Reached(ESimCallState::kConnected));
  bridge.called->Answer();
  EXPECT_TRUE(bridge.called->WaitState(ESimCallState::kConnected, kSoon));
  ExpectBothTalk(bridge, 2);
  bridge.called->Hangup();
  ExpectEndedByBridge(bridge.caller);
  EndInGoodOrder();
}

TEST_F(Bridge, AnswersNobodyBeforeThereIsSomethingToHear) {
  ASSERT_NO_FATAL_FAILURE(StartServing({number}));
  Card().SetAnswerPlan(SAnswerPlan::NeverAnswer());
  const SBridge bridge = Offer({.timeslot = 1});
  EXPECT_TRUE(bridge.called->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_FALSE(bridge.caller->Reached(ESimCallState::kConnected));
  bridge.caller->Hangup();
  ExpectEndedByBridge(bridge.called);
  // A called one who is busy: the caller is refused, and pays for nothing.
  Card().SetAnswerPlan(SAnswerPlan::Refuse(17));
  const SBridge busy = Offer({.timeslot = 31});
  ExpectEndedByBridge(busy.caller);
  EXPECT_FALSE(busy.caller->Reached(ESimCallState::kConnected));
  EXPECT_EQ(busy.caller->Cause(), 21);
  EndInGoodOrder();
}

TEST_F(Bridge, KeepsManyApartAndOutlivesTheLossOfATrunk) {
  ASSERT_NO_FATAL_FAILURE(StartServing({number}, {2}));
  std::vector<SBridge> bridges;
  for (int timeslot = 1; timeslot <= 8; ++timeslot) {
    bridges.push_back(ConnectBoth({.trunk = 0, .timeslot = timeslot}));
  }
  for (size_t bridge = 0; bridge < bridges.size(); ++bridge) {
    bridges[bridge].caller->PlayBytes(Sound(600, static_cast<std::uint32_t>(bridge)));
  }
  for (size_t bridge = 0; bridge < bridges.size(); ++bridge) {
    ExpectHears(bridges[bridge].called, Sound(600, static_cast<std::uint32_t>(bridge)));
  }
  LoseTrunk(0);
  for (const SBridge& bridge : bridges) {
    ASSERT_NE(bridge.called->trunk, 0);
    ExpectEndedByBridge(bridge.called);
  }
  EXPECT_TRUE(example->WaitLine("ended, trunk lost", kSoon, bridges.size()));
  MendTrunk(0);
  ExpectBothTalk(ConnectBoth({.trunk = 0, .timeslot = 20}), 20);
  EndInGoodOrder();
}

}  // namespace
