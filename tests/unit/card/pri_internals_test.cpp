// SPDX-License-Identifier: GPL-2.0-only
#include "card/pri_internals.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/pri_pair.h"

namespace zelk {
namespace {

TEST(PriRelease, EverySwitchTypeCanBeReleased) {
  for (int switchType = -1; switchType < 20; ++switchType) {
    CPriSide user(kUserSide, switchType);
    CPriSide network(kNetworkSide, switchType);
  }
}

// What happens to a call, a piece at a time.
void PlayScenario(CPriPair& pair, bool byUser, int frames) {
  CPriSide& caller = byUser ? pair.user : pair.network;
  CPriSide& called = byUser ? pair.network : pair.user;
  pair.Run();
  const PriCall call = caller.controller->NewCall();
  caller.controller->Setup(call, 5, "100", "200", kNationalIsdnNumber);
  const auto step = [&](auto action) {
    const int now = std::min(frames, 4);
    frames -= now;
    pair.Run(now);
    action();
  };
  step([&] { called.controller->Proceeding(called.Ring(), 5); });
  step([&] { called.controller->Alerting(called.Ring(), 5); });
  step([&] { called.controller->Answer(called.Ring(), 5); });
  step([&] { caller.controller->Hangup(call, 16); });
  step([&] { called.controller->Hangup(called.Ring(), 16); });
  pair.Run(frames);
}

// Leaks and reads of freed memory are the sanitizer's to find.
TEST(PriRelease, TakesAControllerInEveryStateOfACall) {
  for (const bool byUser : {true, false}) {
    for (int frames = 0; frames < 32; ++frames) {
      CPriPair pair;
      PlayScenario(pair, byUser, frames);
    }
  }
}

TEST(PriRelease, TakesAControllerWithManyCalls) {
  CPriPair pair;
  pair.Run();
  for (int timeslot = 1; timeslot < 32; ++timeslot) {
    if (timeslot != 16) {
      pair.Dial(timeslot % 2 == 0 ? pair.user : pair.network, timeslot);
    }
  }
  EXPECT_TRUE(pair.user.Has(kPriRing));
  EXPECT_TRUE(pair.network.Has(kPriRing));
}

TEST(PriRelease, WritesNothing) {
  CPriPair pair;
  pair.Run();
  pair.Dial(pair.user);
  pair.user.written.clear();
  pair.user.controller.reset();
  EXPECT_TRUE(pair.user.written.empty());
}

// Its reference is free for the next call then, whose SETUP would else be taken for one of the old call.
TEST(PriRelease, ACallClearedBeforeAnythingWasSentForItLeavesNothing) {
  CPriPair pair;
  pair.Run();
  const PriCall caller = pair.Dial(pair.network);
  const PriCall call = pair.user.Ring();
  ASSERT_TRUE(pair.user.controller->IsCallValid(call));
  pair.network.controller->Hangup(caller, 16);
  pair.Run();
  EXPECT_FALSE(pair.user.controller->IsCallValid(call));
  EXPECT_TRUE(pair.network.Has(kPriHangupAck));
}

constexpr int kTwoWindows = 14;  // of Q.921: k is 7 for a primary rate interface

void DialMany(CPriSide& side, int calls) {
  for (int i = 0; i < calls; ++i) {
    EXPECT_EQ(side.controller->Setup(side.controller->NewCall(), 1 + i % 15, "1", "2", kNationalIsdnNumber), 0);
  }
}

TEST(PriBacklog, IsMoreThanTwoWindowsOfFrames) {
  CPriPair pair;
  pair.Run();
  DialMany(pair.user, kTwoWindows);
  EXPECT_FALSE(pair.user.isBacklogged);
  DialMany(pair.user, 1);
  EXPECT_TRUE(pair.user.isBacklogged);
}

TEST(PriBacklog, EndsWithTheAcknowledgement) {
  CPriPair pair;
  pair.Run();
  DialMany(pair.user, kTwoWindows + 1);
  pair.network.Receive(pair.user.written.front());
  ASSERT_EQ(pair.network.written.front()[2], 0x01) << "receive ready";
  pair.user.Receive(pair.network.written.front());
  EXPECT_FALSE(pair.user.isBacklogged);
}

TEST(PriBacklog, IsNoneOnALinkThatIsDown) {
  CPriPair pair;
  DialMany(pair.user, kTwoWindows + 1);
  EXPECT_FALSE(pair.user.isBacklogged);
  EXPECT_GT(pair.user.timerMoves, 0U);
}

}  // namespace
}  // namespace zelk
