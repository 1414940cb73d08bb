// SPDX-License-Identifier: GPL-2.0-only
#include "card/pri_adapter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/pri_pair.h"

namespace zelk {
namespace {

TEST(PriController, BothSidesReportTheirDchannelUp) {
  CPriPair pair;
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriDchannelUp));
  EXPECT_TRUE(pair.network.Has(kPriDchannelUp));
}

TEST(PriController, WritesDuringCreationUnderItsTrunk) {
  CPriSide side(kUserSide, kEuroIsdnE1, 6);
  EXPECT_EQ(side.lastTrunk, 6U);
  ASSERT_FALSE(side.written.empty());
  EXPECT_GE(side.written.front().size(), 5U);
}

TEST(PriController, ARingCarriesChannelNumbersAndItsCall) {
  CPriPair pair;
  pair.Run();
  pair.Dial(pair.user, 17);
  const SPriEvent* ring = pair.network.Find(kPriRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->channel & 0xFF, 17);
  EXPECT_EQ(ring->callingNumber, "5559876");
  EXPECT_EQ(ring->calledNumber, "5551234");
  EXPECT_EQ(ring->redirectingNumber, "");
  EXPECT_TRUE(pair.network.controller->IsCallValid(ring->call));
}

TEST(PriController, ACallIsAnsweredAndAcknowledgedOnce) {
  CPriPair pair;
  pair.Run();
  pair.Dial(pair.user);
  const PriCall call = pair.network.Ring();
  EXPECT_EQ(pair.network.controller->Proceeding(call, 3), 0);
  EXPECT_EQ(pair.network.controller->Alerting(call, 3), 0);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriProceeding));
  EXPECT_TRUE(pair.user.Has(kPriRinging));
  EXPECT_FALSE(pair.user.Has(kPriAnswer));
  EXPECT_EQ(pair.network.controller->Answer(call, 3), 0);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriAnswer));
  EXPECT_TRUE(pair.network.Has(kPriConnectAck));
}

TEST(PriController, WithoutAnAcknowledgementTheAnswerStaysUnacknowledged) {
  CPriPair pair;
  pair.user.acknowledgesAnswers = false;
  pair.Run();
  pair.Dial(pair.user);
  pair.network.controller->Answer(pair.network.Ring(), 3);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriAnswer));
  EXPECT_FALSE(pair.network.Has(kPriConnectAck));
}

TEST(PriController, TheNetworkCallsToo) {
  CPriPair pair;
  pair.Run();
  pair.Dial(pair.network, 31);
  const SPriEvent* ring = pair.user.Find(kPriRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->channel & 0xFF, 31);
  EXPECT_EQ(pair.user.controller->Answer(ring->call, 31), 0);
  pair.Run();
  EXPECT_TRUE(pair.network.Has(kPriAnswer));
  EXPECT_TRUE(pair.user.Has(kPriConnectAck));
}

TEST(PriController, PartiesOfAnIncomingCall) {
  CPriPair pair;
  pair.Run();
  pair.Dial(pair.network);
  SPriParties parties;
  ASSERT_TRUE(pair.user.controller->Parties(pair.user.Ring(), parties));
  EXPECT_TRUE(parties.remote.valid);
  EXPECT_EQ(parties.remote.digits, "5559876");
  EXPECT_TRUE(parties.called.valid);
  EXPECT_EQ(parties.called.digits, "5551234");
  EXPECT_FALSE(parties.redirecting.valid);
}

TEST(PriController, AHangupCarriesItsCauseAndEndsTheCall) {
  CPriPair pair;
  pair.Run();
  const PriCall call = pair.Dial(pair.user);
  pair.network.controller->Proceeding(pair.network.Ring(), 3);
  EXPECT_EQ(pair.network.controller->Hangup(pair.network.Ring(), 17), 0);
  pair.Run();
  const SPriEvent* request = pair.user.Find(kPriHangupRequest);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->cause, 17);
  EXPECT_EQ(request->call, call);
  EXPECT_EQ(request->hangupCall, call);
  pair.user.controller->Hangup(call, 16);
  pair.Run();
  EXPECT_TRUE(pair.network.Has(kPriHangup));
  pair.network.controller->Hangup(pair.network.Ring(), 16);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriHangupAck));
  EXPECT_FALSE(pair.user.controller->IsCallValid(call));
}

// The SETUP of a call with its channel identification replaced by "any channel" (Q.931, 4.5.13).
PriFrame SetupForAnyChannel(CPriSide& from) {
  from.controller->Setup(from.controller->NewCall(), 3, "5551234", "5559876", kNationalIsdnNumber);
  PriFrame frame = from.written.front();
  from.written.clear();
  const PriFrame named{0x18, 0x03, 0xA9, 0x83, 0x83};
  const PriFrame any{0x18, 0x01, 0xA3};
  const auto place = std::search(frame.begin(), frame.end(), named.begin(), named.end());
  EXPECT_NE(place, frame.end());
  frame.insert(frame.erase(place, place + static_cast<ptrdiff_t>(named.size())), any.begin(), any.end());
  return frame;
}

TEST(PriController, ARingThatNamesNoChannelSaysSo) {
  CPriPair pair;
  pair.Run();
  const PriFrame frame = SetupForAnyChannel(pair.network);
  SPriEvent event;
  ASSERT_TRUE(pair.user.controller->Receive(frame.data(), frame.size(), event));
  EXPECT_EQ(event.code, kPriRing);
  EXPECT_EQ(static_cast<uint16_t>(event.channel), 0xFFFF);
  EXPECT_EQ(pair.user.controller->NeedMoreInfo(event.call, 1), 0);
}

TEST(PriController, EveryOperationRefusesACallThatIsNotItsOwn) {
  CPriPair pair;
  pair.Run();
  const PriCall foreign = pair.Dial(pair.user);
  pair.user.controller->DestroyCall(foreign);
  CPriController& controller = *pair.user.controller;
  for (const PriCall call : {static_cast<PriCall>(nullptr), foreign}) {
    SPriParties parties;
    EXPECT_FALSE(controller.IsCallValid(call));
    EXPECT_FALSE(controller.Parties(call, parties));
    EXPECT_EQ(controller.Setup(call, 1, "1", "2", kNationalIsdnNumber), -1);
    EXPECT_EQ(controller.DestroyCall(call), -1);
    EXPECT_EQ(controller.NeedMoreInfo(call, 1), -1);
    EXPECT_EQ(controller.Proceeding(call, 1), -1);
    EXPECT_EQ(controller.Alerting(call, 1), -1);
    EXPECT_EQ(controller.Answer(call, 1), -1);
    EXPECT_EQ(controller.ConnectAck(call, 1), -1);
    EXPECT_EQ(controller.Hangup(call, 16), -1);
  }
}

TEST(PriController, AnEventOfACallThatIsFreedWithItStillHasItsHandle) {
  CPriPair pair;
  pair.Run();
  const PriCall call = pair.Dial(pair.user);
  pair.network.controller->Hangup(pair.network.Ring(), 44);  // RELEASE COMPLETE
  pair.Run();
  const SPriEvent* hangup = pair.user.Find(kPriHangup);
  ASSERT_NE(hangup, nullptr);
  EXPECT_EQ(hangup->call, call);
  EXPECT_TRUE(pair.user.controller->IsCallValid(call));
  pair.user.controller->Hangup(call, 16);
  EXPECT_FALSE(pair.user.controller->IsCallValid(call));
  const PriCall second = pair.Dial(pair.user);
  EXPECT_NE(second, call);
  pair.user.controller->Hangup(second, 16);
  pair.network.controller->Hangup(pair.network.events.back().call, 44);
  pair.Run();
  const SPriEvent& acknowledge = pair.user.events.back();
  EXPECT_EQ(acknowledge.code, kPriHangupAck);
  EXPECT_EQ(acknowledge.call, second);
  EXPECT_FALSE(pair.user.controller->IsCallValid(second));
}

// Whoever waits for the earliest timer asks again after each of them.
TEST(PriController, EveryOperationTellsThatTimersMayHaveMoved) {
  CPriPair pair;
  pair.Run();
  CPriSide& user = pair.user;
  uint32_t told = user.timerMoves;
  const auto hasTold = [&] { return std::exchange(told, user.timerMoves) < user.timerMoves; };
  const PriCall call = user.controller->NewCall();
  EXPECT_TRUE(hasTold());
  EXPECT_EQ(user.controller->Setup(call, 3, "1", "2", kNationalIsdnNumber), 0);
  EXPECT_TRUE(hasTold());
  SPriEvent event;
  EXPECT_FALSE(user.controller->RunTimers(event));
  EXPECT_TRUE(hasTold());
  pair.network.Receive(user.written.front());
  user.written.clear();
  const PriFrame receiveReady = pair.network.written.front();
  ASSERT_EQ(receiveReady[2], 0x01) << "the SETUP is acknowledged first";
  EXPECT_FALSE(user.controller->Receive(receiveReady.data(), receiveReady.size(), event));
  EXPECT_TRUE(hasTold());
  EXPECT_TRUE(user.controller->IsCallValid(call));
  EXPECT_EQ(user.controller->Hangup(call, 16), 0);
  EXPECT_TRUE(hasTold());
}

TEST(PriController, ASecondHangupOfAClearingCallWritesNothingAndSucceeds) {
  CPriPair pair;
  pair.Run();
  const PriCall call = pair.Dial(pair.user);
  pair.network.controller->Proceeding(pair.network.Ring(), 3);
  pair.Run();
  EXPECT_EQ(pair.user.controller->Hangup(call, 16), 0);
  const size_t written = pair.user.written.size();
  EXPECT_EQ(pair.user.controller->Hangup(call, 16), 0);
  EXPECT_EQ(pair.user.written.size(), written);
  EXPECT_TRUE(pair.user.controller->IsCallValid(call));
}

TEST(PriController, LongNumbersAreCutTo31Characters) {
  CPriPair pair;
  pair.Run();
  const std::string digits(40, '7');
  const PriCall call = pair.user.controller->NewCall();
  EXPECT_EQ(pair.user.controller->Setup(call, 1, digits.c_str(), digits.c_str(), kNationalIsdnNumber), 0);
  pair.Run();
  const SPriEvent* ring = pair.network.Find(kPriRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->calledNumber, digits.substr(0, 31));
  EXPECT_EQ(ring->callingNumber, digits.substr(0, 31));
}

TEST(PriController, SetupWithoutACalledNumberFails) {
  CPriSide side(kUserSide);
  const PriCall call = side.controller->NewCall();
  EXPECT_LT(side.controller->Setup(call, 1, nullptr, nullptr, kNationalIsdnNumber), 0);
  EXPECT_TRUE(side.controller->IsCallValid(call));
}

TEST(PriController, ATimerIsPendingFromTheStart) {
  const SUnixTime now = UnixNow();
  CPriSide side(kUserSide);
  SUnixTime due;
  ASSERT_TRUE(side.controller->NextTimer(due));
  EXPECT_GE(due.seconds, now.seconds);
  EXPECT_LT(due.seconds, now.seconds + 60);
}

TEST(PriController, ControllersMayBeMadeOnSeveralThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> up{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        CPriPair pair;
        pair.Run();
        up += pair.user.Has(kPriDchannelUp);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(up, 200);
}

}  // namespace
}  // namespace zelk
