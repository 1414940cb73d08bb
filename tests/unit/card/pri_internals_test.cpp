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

constexpr int kWindow = 7;  // k of Q.921 for a primary rate interface

PriCall DialOn(CPriSide& side, int timeslot) {
  const PriCall call = side.controller->NewCall();
  EXPECT_EQ(side.controller->Setup(call, timeslot, "1", "2", kNationalIsdnNumber), 0);
  return call;
}

TEST(PriWindow, IsFullFromTheSeventhFrameThatIsNotAcknowledged) {
  CPriPair pair;
  pair.Run();
  for (int timeslot = 1; timeslot <= kWindow; ++timeslot) {
    EXPECT_FALSE(pair.user.isWindowFull) << timeslot;
    DialOn(pair.user, timeslot);
  }
  EXPECT_TRUE(pair.user.isWindowFull);
  EXPECT_EQ(pair.user.written.size(), static_cast<size_t>(kWindow));
  DialOn(pair.user, kWindow + 1);
  EXPECT_EQ(pair.user.written.size(), static_cast<size_t>(kWindow)) << "one more than the window waits";
  EXPECT_TRUE(pair.user.isWindowFull);
  pair.Run();
  EXPECT_FALSE(pair.user.isWindowFull);
}

TEST(PriWindow, AnAcknowledgementMakesRoom) {
  CPriPair pair;
  pair.Run();
  for (int timeslot = 1; timeslot <= kWindow; ++timeslot) {
    DialOn(pair.user, timeslot);
  }
  pair.network.Receive(pair.user.written.front());
  ASSERT_EQ(pair.network.written.front()[2], 0x01) << "receive ready";
  pair.user.Receive(pair.network.written.front());
  EXPECT_FALSE(pair.user.isWindowFull);
}

TEST(PriWindow, StaysRightWhereTheNumbersBeginAgain) {
  CPriPair pair;
  pair.Run();
  for (int round = 0; round < 20; ++round) {  // of 14 frames; the numbers have 7 bits
    std::vector<PriCall> calls;
    for (int timeslot = 1; timeslot <= kWindow; ++timeslot) {
      calls.push_back(DialOn(pair.user, timeslot));
    }
    EXPECT_TRUE(pair.user.isWindowFull) << round;
    pair.Run();
    EXPECT_FALSE(pair.user.isWindowFull) << round;
    for (const PriCall call : calls) {
      pair.user.controller->Hangup(call, 16);
    }
    pair.Run();
  }
}

}  // namespace
}  // namespace zelk
