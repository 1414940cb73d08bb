// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_operations.h"
#include "operations_fixture.h"
#include "support/libpri_surroundings.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Lines = std::vector<std::string>;

using CallDial = COperationsFixture;

TEST_F(CallDial, SendsASetupWithNumbersAndOwnTimeslot) {
  JoinTrunk(kUser);
  Channel(20).StartQueue().Push(1);
  RingWithTexts(20, nullptr, "999");
  ASSERT_TRUE(Dial(Channel(20), "0891234", "030999"));
  trunk->Run();
  const SPriEvent ring = trunk->PeerEvent(kPriRing);
  EXPECT_EQ(ring.calledNumber, "0891234");
  EXPECT_EQ(ring.callingNumber, "030999");
  EXPECT_EQ(ring.channel & 0xFF, 22);
  EXPECT_EQ(Info(20, "CLI"), "030999");
  EXPECT_EQ(Info(20, "DLI"), "0891234");
  EXPECT_EQ(Info(20, "RLI"), "");
  EXPECT_EQ(Info(20, "CALLTYPE"), "Voice");
  EXPECT_EQ(Info(20, "CHANNELSTATE"), "INUSE");
  uint32_t value = 0;
  EXPECT_FALSE(Channel(20).StartQueue().Pop(value));
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallDial, WithoutCallingNumberUsesTheLastOne) {
  JoinTrunk(kUser);
  ASSERT_TRUE(Dial(Channel(0), "1", "030999"));
  trunk->Run();
  trunk->peer->Proceeding(trunk->PeerEvent(kPriRing).call, 1);
  trunk->Run();
  ASSERT_TRUE(Hangup(Channel(0)));
  trunk->Run();
  trunk->peer->Hangup(trunk->PeerEvent(kPriHangupRequest).call, 16);
  trunk->Run();
  ASSERT_EQ(View(0).callHandle, nullptr);
  ASSERT_TRUE(Dial(Channel(0), "2", nullptr));
  trunk->Run();
  EXPECT_EQ(trunk->PeerEvent(kPriRing).callingNumber, "030999");
  EXPECT_EQ(trunk->PeerEvent(kPriRing).calledNumber, "2");
}

TEST_F(CallDial, WithNoCallingNumberEverSendsAnEmptyOne) {
  JoinTrunk(kUser);
  ASSERT_TRUE(Dial(Channel(0), "1", nullptr));
  trunk->Run();
  EXPECT_EQ(trunk->PeerEvent(kPriRing).callingNumber, "");
}

TEST_F(CallDial, OnAChannelWithACallFailsAndLeavesTheTexts) {
  CLogCapture log(0);
  JoinTrunk(kUser);
  ASSERT_TRUE(Dial(Channel(0), "1", "2"));
  PriCall call = View(0).callHandle;
  EXPECT_FALSE(Dial(Channel(0), "3", "4"));
  EXPECT_EQ(Info(0, "DLI"), "1");
  EXPECT_EQ(Info(0, "CLI"), "2");
  EXPECT_EQ(View(0).callHandle, call);
  EXPECT_EQ(log.Lines(), (Lines{"  G :Card 0: Trunk 0 - DCHANNEL UP"}));
}

TEST_F(CallDial, WithoutControllerFailsWithALine) {
  CLogCapture log(9);
  EXPECT_FALSE(Dial(Channel(35), "1", "2"));
  EXPECT_EQ(View(35).callHandle, nullptr);
  EXPECT_EQ(Info(35, "DLI"), "1");
  EXPECT_EQ(log.Lines(), (Lines{" 35 :Dial() -> new call failed"}));
}

TEST_F(CallDial, WithoutNumberFailsAndChangesNothing) {
  JoinTrunk(kUser);
  EXPECT_FALSE(Dial(Channel(0), nullptr, "2"));
  EXPECT_EQ(View(0).callHandle, nullptr);
  ASSERT_TRUE(Dial(Channel(0), "1", nullptr));
  EXPECT_EQ(Info(0, "CLI"), "");
}

TEST_F(CallDial, NumbersOfAnyLengthAreTaken) {
  JoinTrunk(kUser);
  const std::string number(5000, '7');
  ASSERT_TRUE(Dial(Channel(0), number.c_str(), number.c_str()));
  trunk->Run();
  EXPECT_EQ(trunk->PeerEvent(kPriRing).calledNumber, std::string(31, '7'));
  EXPECT_EQ(Info(0, "DLI"), number);
}

TEST_F(CallDial, CallThatLibpriCannotMakeFailsWithALine) {
  if (!support::CanReplaceCalloc()) {
    GTEST_SKIP() << "this build's calloc belongs to its sanitizer";
  }
  JoinTrunk(kUser);
  CLogCapture log(9);
  support::FailCalloc(1);
  EXPECT_FALSE(Dial(Channel(0), "1", "2"));
  EXPECT_FALSE(support::IsCallocFailureDue());
  EXPECT_EQ(View(0).callHandle, nullptr);
  EXPECT_EQ(log.Lines(), (Lines{"  0 :Dial() -> new call failed"}));
}

TEST_F(CallDial, RefusedSetupKeepsTheDestroyedCallUntilAReset) {
  if (!support::CanReplaceCalloc()) {
    GTEST_SKIP() << "this build's calloc belongs to its sanitizer";
  }
  JoinTrunk(kUser);
  CLogCapture log(9);
  support::FailCalloc(2);  // the call can be made, the request cannot
  EXPECT_FALSE(Dial(Channel(0), "1", "2"));
  EXPECT_FALSE(support::IsCallocFailureDue());
  EXPECT_TRUE(trunk->us.written.empty());
  {
    CTrunk& own = firstCard.Trunk(0);
    const CScopedLock<CRecursiveMutex> held(own.lock);
    EXPECT_FALSE(own.controller->IsCallValid(View(0).callHandle));
  }
  EXPECT_EQ(log.Lines(), (Lines{"  0 :Dial() -> new call setup failed"}));
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "INUSE");
  EXPECT_FALSE(Dial(Channel(0), "1", "2"));
  EXPECT_TRUE(Hangup(Channel(0)));
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "INUSE");
  EXPECT_FALSE(Reject(Channel(0)));
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "READY");
  EXPECT_TRUE(Dial(Channel(0), "1", "2"));
}

}  // namespace
}  // namespace zelk::test
