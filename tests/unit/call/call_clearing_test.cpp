// SPDX-License-Identifier: GPL-2.0-only

// What the other side may answer to a clearing that the library begins (ITU-T Q.931, 5.3 and 5.8), and what becomes of
// the channel when libpri confirms it without a release of its own.
#include "call/disconnect_cause.h"
#include "clearing_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

class CallClearing : public CClearingFixture {};

TEST_F(CallClearing, AnsweredByReleaseIsReportedAtOnce) {
  Connect(3);
  HangUp(3);
  trunk.peer->Hangup(trunk.PeerEvent(kPriHangupRequest).call, 16);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 16}}));
  Elapse(2 * kDefaultTimeoutMs);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallClearing, AnsweredByReleaseCompleteIsReportedLateWithItsCause) {
  Connect(3);
  SendToUs(HangUp(3), kReleaseComplete, {0x08, 0x02, 0x81, 0xE5});
  EXPECT_EQ(application.Take(), Posted{});
  ForgetAtPeer();
  ExpectReleasedLate(3, 101);
}

TEST_F(CallClearing, AnsweredByReleaseCompleteWithoutCauseIsReportedAs16) {
  Connect(3);
  SendToUs(HangUp(3), kReleaseComplete, {});
  ForgetAtPeer();
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, OfACallThatTheOtherSideNoLongerKnowsIsReportedLate) {
  Connect(3);
  EXPECT_TRUE(Hangup(Channel(3)));
  trunk.peer->DestroyCall(trunk.PeerEvent(kPriConnectAck).call);
  trunk.Run();  // it answers by itself: RELEASE COMPLETE, invalid call reference
  ExpectReleasedLate(3, 81);
}

TEST_F(CallClearing, AnsweredByStatusOfTheNullStateIsReportedLate) {
  Connect(3);
  SendToUs(HangUp(3), kStatus, {0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00});
  ForgetAtPeer();
  ExpectReleasedLate(3, 101);
}

TEST_F(CallClearing, AnsweredOnlyAfterT305ByReleaseCompleteIsReportedLate) {
  Connect(3);
  HangUp(3);
  Elapse(kT305Ms - 1000);
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).call, nullptr);
  Elapse(2000);
  const PriCall released = trunk.PeerEvent(kPriHangup).call;
  ASSERT_NE(released, nullptr);  // our RELEASE
  EXPECT_EQ(application.Take(), Posted{});
  trunk.peer->Hangup(released, 16);
  trunk.Run();
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, AnsweredByNothingAtAllIsReportedLateAfterT308HasRunTwice) {
  Connect(3);
  HangUp(3);
  Elapse(kT305Ms + kT308Ms + 1000);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_TRUE(IsValid(View(3).callHandle));
  Elapse(kT308Ms);
  EXPECT_FALSE(IsValid(View(3).callHandle));
  ForgetAtPeer();
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 16}}));
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

TEST_F(CallClearing, CrossedByARefusalIsReportedLateWithItsCause) {
  ASSERT_TRUE(Dial(Channel(3), "999", "111"));
  trunk.Run();
  EXPECT_TRUE(Hangup(Channel(3)));
  trunk.peer->Hangup(trunk.PeerEvent(kPriRing).call, 44);
  trunk.ToUs();
  EXPECT_EQ(application.Take(), Posted{});
  trunk.Run();
  ExpectReleasedLate(3, 44);
}

TEST_F(CallClearing, OfT313AnsweredByReleaseCompleteIsReportedLate) {
  Offer(4);
  ASSERT_TRUE(Answer(Channel(3)));
  trunk.Run();
  application.Take();
  support::MoveLibpriClock(kT313Ms + 500);
  const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
  SPriEvent event;
  firstCard.Trunk(0).controller->RunTimers(event);
  ASSERT_EQ(CountSent(kDisconnect), 1U);
  const SMessage disconnect = Sent().back();
  trunk.ToPeer();
  ForgetAtPeer();
  SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0x90});
  EXPECT_EQ(application.Take(), Posted{});
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, OfARestartAnsweredByReleaseCompleteIsReportedLate) {
  Connect(3);
  Raise(4, kPriRestart);
  ASSERT_EQ(CountSent(kDisconnect), 1U);
  const SMessage disconnect = Sent().back();
  trunk.Run();
  ForgetAtPeer();
  SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0x90});
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, OnAChannelDownBeforeItsDchannelIsReportedLate) {
  Channel(3).Open();
  Connect(3);
  Channel(3).Close();
  HangUp(3);
  ForgetAtPeer();
  trunk.them.written.push_back({0x02, 0x01, 0x53, 0, 0});  // DISC
  trunk.ToUs();
  trunk.RunTimers(nowMs);
  for (const SPosted& posted : application.Take()) {
    EXPECT_NE(posted.channel, 3);
  }
  EXPECT_NE(View(3).callHandle, nullptr);
  EXPECT_FALSE(IsValid(View(3).callHandle));
  Elapse(kDefaultTimeoutMs + 1000);
  const Posted posted = application.Take();
  EXPECT_EQ(std::count(posted.begin(), posted.end(), (SPosted{3, EVENT_DISCONNECTED, 27})), 1);
  EXPECT_EQ(View(3).callHandle, nullptr);
}

// The cause is mandatory only in the message that begins a clearing (ITU-T Q.931, table 3-9).
TEST_F(CallClearing, AnsweredByAReleaseWithoutCauseIsReportedWithNone) {
  Connect(3);
  SendToUs(HangUp(3), kRelease, {});
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, -1}}));
  EXPECT_STREQ(DisconnectCauseName(-1), "REASON_UNKNOWN");
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

// ---- the wait ----

TEST_F(CallClearing, TimeoutIsTheConfiguredOne) {
  Config().clearedCallTimeoutS = 60;
  StickConnected(3);
  Elapse(59000);
  EXPECT_EQ(application.Take(), Posted{});
  Elapse(2000);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 101}}));
}

TEST_F(CallClearing, TimeoutOf0KeepsTheChannelUntilItsTrunkIsLost) {
  Config().clearedCallTimeoutS = 0;
  StickConnected(3);
  EXPECT_FALSE(firstHandlers.AwaitsTime());
  Elapse(600000);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "INUSE");
  EXPECT_FALSE(Dial(Channel(3), "1", "2"));
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

TEST_F(CallClearing, TheCardIsAskedForItsTimeOnlyWhileACallWaits) {
  EXPECT_FALSE(firstHandlers.AwaitsTime());
  StickConnected(3);
  EXPECT_TRUE(firstHandlers.AwaitsTime());
  EXPECT_FALSE(secondHandlers.AwaitsTime());
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_FALSE(firstHandlers.AwaitsTime());
}

TEST_F(CallClearing, WhatFreesTheChannelFirstIsTheOnlyEnd) {
  Offer(4);
  const SMessage disconnect = HangUp(3);
  ForgetAtPeer();
  SendToUs(disconnect, kReleaseComplete, {});
  application.Take();
  EXPECT_FALSE(Reject(Channel(3)));
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
  Connect(3);
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_TRUE(View(3).connected);
}

TEST_F(CallClearing, ARingInTheMeantimeIsOfferedUnconnectedAndCanBeAnswered) {
  StickConnected(3);
  Offer(4);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_INCOMING_CALL, 0}}));
  EXPECT_FALSE(View(3).connected);
  EXPECT_TRUE(Answer(Channel(3)));
  trunk.ToPeer();
  EXPECT_NE(trunk.PeerEvent(kPriAnswer).call, nullptr);
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "INUSE");
}

TEST_F(CallClearing, ARingOnAChannelLeftConnectedCanBeRejected) {
  StickConnected(3);
  Offer(4);
  EXPECT_FALSE(Reject(Channel(3)));
  trunk.ToPeer();
  EXPECT_EQ(trunk.PeerEvent(kPriHangupRequest).cause, kCauseCallRejected);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

// ---- clearing twice ----

TEST_F(CallClearing, ASecondHangUpIsLeftAloneAndTheReleaseAnsweredAtOnce) {
  enum class EAgain { kHangup, kReject, kRestart };
  for (const EAgain again : {EAgain::kHangup, EAgain::kReject, EAgain::kRestart}) {
    Offer(4);
    trunk.them.events.clear();
    EXPECT_TRUE(Hangup(Channel(3)));
    switch (again) {
      case EAgain::kHangup:
        EXPECT_TRUE(Hangup(Channel(3)));
        break;
      case EAgain::kReject:
        EXPECT_FALSE(Reject(Channel(3)));
        break;
      case EAgain::kRestart:
        Raise(4, kPriRestart);
        break;
    }
    EXPECT_EQ(Sent().size(), 1U);
    trunk.Run();
    const PriCall call = trunk.PeerEvent(kPriHangupRequest).call;
    ASSERT_NE(call, nullptr);
    trunk.peer->Hangup(call, 16);  // RELEASE
    trunk.ToUs();
    EXPECT_EQ(CountSent(kReleaseComplete), 1U) << "what the other side waits for";
    trunk.Run();
    EXPECT_FALSE(trunk.peer->IsCallValid(call));
    application.Take();
  }
}

}  // namespace
}  // namespace zelk::test
