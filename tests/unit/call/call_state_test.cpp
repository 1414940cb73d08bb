// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_state.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

namespace zelk {
namespace {

using enum ECallState;

constexpr ECallState kStates[] = {kIdle, kOffered, kDialled, kConnected, kClearing, kLost};
constexpr PriCall kCall = PriCall(7);
constexpr PriCall kOther = PriCall(8);

class CEchoSwitch : public IEchoSwitch {
 public:
  void SwitchEcho(bool on) override { last = on; }
  std::optional<bool> last;
};

class CallState : public ::testing::Test {
 protected:
  // Brings a channel whose trunk is up into a state, with kCall where the state has one.
  void Enter(CCallState& call, ECallState state) {
    call.TrunkUp();
    switch (state) {
      case kIdle:
        return;
      case kOffered:
        return call.Offer(kCall);
      case kDialled:
        call.Dial(kCall);
        return;
      case kConnected:
        call.Offer(kCall);
        return call.Connect();
      case kClearing:
        call.Offer(kCall);
        call.Clear(kCall);
        return;
      case kLost:
        call.Offer(kCall);
        return call.Lose();
    }
  }
  // Where a change leads from every state, in their order.
  template <class Change>
  std::vector<ECallState> From(const std::vector<ECallState>& states, Change change) {
    std::vector<ECallState> reached;
    for (const ECallState state : states) {
      CCallState call(echo);
      Enter(call, state);
      EXPECT_EQ(call.View().state, state);
      change(call);
      reached.push_back(call.View().state);
    }
    return reached;
  }
  template <class Change>
  std::vector<ECallState> FromAll(Change change) {
    return From({std::begin(kStates), std::end(kStates)}, change);
  }

  using States = std::vector<ECallState>;
  CEchoSwitch echo;
};

TEST_F(CallState, BeginsIdleDownAndOutgoing) {
  const SCallView view = CCallState(echo).View();
  EXPECT_EQ(view.state, kIdle);
  EXPECT_EQ(view.callHandle, nullptr);
  EXPECT_FALSE(view.connected);
  EXPECT_EQ(view.direction, 0);
  EXPECT_EQ(view.linkState, -1);
  EXPECT_EQ(echo.last, std::nullopt);
}

TEST_F(CallState, EveryChangeLeadsWhereTheTableSays) {
  EXPECT_EQ(FromAll([](CCallState& call) { call.Offer(kOther); }), States(6, kOffered));
  EXPECT_EQ(From({kIdle, kLost}, [](CCallState& call) { EXPECT_TRUE(call.Dial(kOther)); }), States(2, kDialled));
  EXPECT_EQ(FromAll([](CCallState& call) { call.Connect(); }),
            (States{kConnected, kConnected, kConnected, kConnected, kClearing, kConnected}));
  EXPECT_EQ(FromAll([](CCallState& call) { call.Clear(kCall); }),
            (States{kIdle, kClearing, kClearing, kClearing, kClearing, kLost}));
  EXPECT_EQ(FromAll([](CCallState& call) { call.End(); }), (States{kIdle, kIdle, kIdle, kIdle, kIdle, kLost}));
  EXPECT_EQ(FromAll([](CCallState& call) { call.Lose(); }), (States{kIdle, kLost, kLost, kLost, kLost, kLost}));
  const auto flap = [](CCallState& call) {
    call.CloseChannel();
    EXPECT_TRUE(call.TrunkUp());
  };
  EXPECT_EQ(FromAll(flap), (States{kIdle, kOffered, kDialled, kConnected, kClearing, kIdle}));
}

TEST_F(CallState, ADialOverAnotherCallIsRefusedAndChangesNothing) {
  for (const ECallState state : {kOffered, kDialled, kConnected, kClearing}) {
    CCallState call(echo);
    Enter(call, state);
    EXPECT_DEBUG_DEATH(EXPECT_FALSE(call.Dial(kOther)), "isFree");
    EXPECT_EQ(call.View().state, state);
    EXPECT_EQ(call.View().callHandle, kCall);
  }
}

TEST_F(CallState, ARingIsOfferedUnconnectedWhateverTheChannelWasLeftWith) {
  CCallState call(echo);
  Enter(call, kConnected);
  call.Offer(kOther);
  EXPECT_EQ(call.View().callHandle, kOther);
  EXPECT_FALSE(call.View().connected);
  EXPECT_EQ(echo.last, std::nullopt);
}

TEST_F(CallState, AnOfferWithoutAHandleLeavesNoCall) {
  CCallState call(echo);
  Enter(call, kConnected);
  call.Offer(nullptr);
  EXPECT_EQ(call.View().state, kIdle);
  EXPECT_FALSE(call.View().connected);
  EXPECT_TRUE(call.Dial(kCall));
}

TEST_F(CallState, AChannelConnectedWithoutACallDialsAConnectedOne) {
  CCallState call(echo);
  call.Connect();
  EXPECT_EQ(call.View().callHandle, nullptr);
  EXPECT_TRUE(call.Dial(kCall));
  EXPECT_EQ(call.View().state, kDialled);
  EXPECT_TRUE(call.View().connected);
}

TEST_F(CallState, AnAnswerThatCrossesTheClearingConnects) {
  CCallState call(echo);
  Enter(call, kClearing);
  EXPECT_FALSE(call.View().connected);
  call.Connect();
  EXPECT_TRUE(call.View().connected);
  EXPECT_EQ(call.View().state, kClearing);
}

TEST_F(CallState, EchoFollowsTheAnswerThatBringsItAndEveryEnd) {
  CCallState call(echo);
  Enter(call, kOffered);
  call.Connect(true);
  EXPECT_EQ(echo.last, true);
  call.Connect(false);
  EXPECT_EQ(echo.last, false);
  call.Connect(true);
  call.End();
  EXPECT_EQ(echo.last, false);
  call.Connect(true);
  call.Lose();
  EXPECT_EQ(echo.last, false);
}

TEST_F(CallState, HangingUpReadsAsOutgoingAndKeepsTheCall) {
  CCallState call(echo, 1);
  Enter(call, kOffered);
  EXPECT_EQ(call.BeginHangup(), kCall);
  EXPECT_EQ(call.View().direction, 0);
  EXPECT_EQ(call.View().state, kOffered);
  EXPECT_FALSE(call.Clear(kOther));
  EXPECT_EQ(call.View().state, kOffered);
  EXPECT_TRUE(call.Clear(kCall));
  EXPECT_EQ(call.View().callHandle, kCall);
}

TEST_F(CallState, AnEndResetsTheDirectionAndALossLeavesIt) {
  CCallState call(echo, 5);
  Enter(call, kConnected);
  call.Lose();
  EXPECT_EQ(call.View().direction, 5);
  EXPECT_EQ(call.View().linkState, -1);
  EXPECT_EQ(call.View().callHandle, nullptr);
  EXPECT_FALSE(call.View().connected);
  call.End();
  EXPECT_EQ(call.View().direction, 0);
}

TEST_F(CallState, OnlyTheFirstOfTwoRisesOfTheTrunkIsOne) {
  CCallState call(echo);
  EXPECT_TRUE(call.TrunkUp());
  EXPECT_FALSE(call.TrunkUp());
  call.CloseChannel();
  EXPECT_EQ(call.View().linkState, -1);
  EXPECT_TRUE(call.TrunkUp());
}

TEST_F(CallState, LostCallsAreRememberedOneByOneAndTheOldestGoesFirst) {
  CCallState call(echo);
  call.Lose();  // without a call there is nothing to remember
  EXPECT_FALSE(call.IsLost(nullptr));
  for (uint64_t number = 1; number <= 17; ++number) {
    call.Offer(PriCall(number));
    call.Lose();
    call.Offer(PriCall(number));
    call.Lose();
  }
  EXPECT_FALSE(call.IsLost(PriCall(1)));
  EXPECT_TRUE(call.IsLost(PriCall(2)));
  call.ForgetLost(PriCall(2));
  EXPECT_FALSE(call.IsLost(PriCall(2)));
  EXPECT_TRUE(call.IsLost(PriCall(17)));
  call.ForgetAllLost();
  EXPECT_FALSE(call.IsLost(PriCall(17)));
}

// What holds of every state, whatever another thread is changing.
void ExpectWhole(const SCallView& view) {
  const bool hasCall = view.state != kIdle && view.state != kLost;
  EXPECT_EQ(view.callHandle != nullptr, hasCall) << static_cast<int>(view.state);
  if (view.state == kOffered || view.state == kIdle || view.state == kLost) {
    EXPECT_FALSE(view.connected) << static_cast<int>(view.state);
  }
  if (view.state == kConnected) {
    EXPECT_TRUE(view.connected);
  }
  if (view.state == kLost) {
    EXPECT_EQ(view.linkState, -1);
  }
}

TEST_F(CallState, NoThreadSeesHalfAChange) {
  constexpr uint64_t kCalls = 20000;
  CCallState call(echo);
  std::atomic<bool> isDone{false};
  std::thread writer([&call, &isDone] {
    for (uint64_t number = 1; number <= kCalls; ++number) {
      call.TrunkUp();
      call.Offer(PriCall(number));
      call.Connect();
      call.Clear(call.BeginHangup());
      number % 2 == 0 ? call.End() : call.Lose();
    }
    isDone = true;
  });
  while (!isDone) {
    ExpectWhole(call.View());
  }
  writer.join();
  ExpectWhole(call.View());
}

}  // namespace
}  // namespace zelk
