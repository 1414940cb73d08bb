// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_operations.h"

#include "call/disconnect_cause.h"
#include "operations_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Lines = std::vector<std::string>;

using CallOperations = COperationsFixture;
using CallOperationsOfIncoming = CIncomingFixture;

TEST_F(CallOperations, AnswerAndRejectOfAConnectedCallSendNothing) {
  JoinTrunk(kNetwork);
  Offer(5);
  Answer(Channel(4));
  trunk->Run();
  application.Take();
  trunk->them.events.clear();
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_TRUE(Reject(Channel(4)));
  EXPECT_TRUE(trunk->us.written.empty());
  EXPECT_NE(View(4).callHandle, nullptr);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallOperations, RejectClearsTheOfferWithCause21AndResetsWithoutEvent) {
  JoinTrunk(kUser);
  Offer(5);
  EXPECT_FALSE(Reject(Channel(4)));
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Info(4, "CALLTYPE"), "");
  EXPECT_EQ(Info(4, "CHANNELSTATE"), "READY");
  EXPECT_EQ(Channel(4).LastCause(), 16);
  trunk->ToPeer();
  const SPriEvent cleared = trunk->PeerEvent(kPriHangupRequest);
  EXPECT_NE(cleared.call, nullptr);
  EXPECT_EQ(cleared.cause, kCauseCallRejected);
}

// As one is that waited for its trunk over a shut-down.
TEST_F(CallOperations, ARetiredChannelPlacesNoCall) {
  JoinTrunk(kUser);
  Channel(4).Retire(nullptr);
  EXPECT_FALSE(Dial(Channel(4), "5551234", nullptr));
  EXPECT_TRUE(trunk->us.written.empty());
  EXPECT_EQ(View(4).callHandle, nullptr);
}

TEST_F(CallOperations, ARetiredChannelLeavesItsCallAlone) {
  JoinTrunk(kNetwork);
  Offer(5);
  trunk->us.written.clear();
  Channel(4).Retire(nullptr);
  EXPECT_FALSE(Answer(Channel(4)));
  EXPECT_FALSE(Reject(Channel(4)));
  EXPECT_NE(View(4).callHandle, nullptr);
  EXPECT_TRUE(Hangup(Channel(4)));
  EXPECT_TRUE(trunk->us.written.empty());
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallOperations, RejectWithoutCallResetsAndIsFalse) {
  EXPECT_FALSE(Reject(Channel(35)));
  EXPECT_EQ(Channel(35).LastCause(), 16);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallOperations, OperationsClearTheMessageOfTheLastFailure) {
  Answer(Channel(35));
  ASSERT_NE(Channel(35).Message(), "");
  Reject(Channel(35));
  EXPECT_EQ(Channel(35).Message(), "");
  Answer(Channel(35));
  Dial(Channel(35), "1", nullptr);
  EXPECT_EQ(Channel(35).Message(), "");
  Answer(Channel(35));
  RaiseOn(1, 6, kPriConnectAck);
  Answer(Channel(35));  // nothing to do
  EXPECT_EQ(Channel(35).Message(), "");
}

TEST_F(CallOperations, HangupOfAnIdleChannelSendsAndLogsNothing) {
  JoinTrunk(kUser);
  CLogCapture log(0);
  EXPECT_TRUE(Hangup(Channel(4)));
  EXPECT_TRUE(trunk->us.written.empty());
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(CallOperations, HangupOfACallThatLibpriDoesNotKnowLogs) {
  RingWithTexts(35, kNobodysCall, "");
  CLogCapture log(9);
  EXPECT_TRUE(Hangup(Channel(35)));
  EXPECT_EQ(log.Lines(), (Lines{" 35 :Hangup()-> Failed in Q931 release()"}));
}

TEST_F(CallOperationsOfIncoming, HangupSends16AndLeavesTheResetToTheNetwork) {
  JoinTrunk(kUser);
  Offer(5);
  CLogCapture log(9);
  ASSERT_EQ(View(4).direction, 1);
  EXPECT_TRUE(Hangup(Channel(4)));
  EXPECT_EQ(View(4).direction, 0);
  EXPECT_NE(View(4).callHandle, nullptr);
  EXPECT_EQ(application.Take(), Posted{});
  trunk->ToPeer();
  EXPECT_EQ(trunk->PeerEvent(kPriHangupRequest).cause, kCauseNormalClearing);
  trunk->peer->Hangup(trunk->PeerEvent(kPriHangupRequest).call, 16);
  trunk->Run();
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_DISCONNECTED, 16}}));
  EXPECT_EQ(View(4).callHandle, nullptr);
  EXPECT_EQ(log.Lines(), Lines{});
}

}  // namespace
}  // namespace zelk::test
