// SPDX-License-Identifier: GPL-2.0-only

// Answers of the network, and its acknowledgement of ours.
#include "call/call_events.h"
#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

using CallAnswered = CTrunkFixture;

TEST_F(CallAnswered, ConnectAcknowledgeBringsPartiesAndEchoSetting) {
  Offer(5);
  application.Take();
  firstCard.Trunk(0).echoEnabled = true;
  ASSERT_TRUE(Answer(Channel(4)));
  EXPECT_EQ(application.Take(), Posted{});
  Raise(5, kPriHangup);  // of no call: it empties the texts
  application.Take();
  ASSERT_EQ(Texts(4), "|||");
  trunk.ToPeer();
  const SPriEvent answer = trunk.PeerEvent(kPriAnswer);
  trunk.peer->ConnectAck(answer.call, answer.channel);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
  EXPECT_TRUE(View(4).connected);
  EXPECT_TRUE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(Info(4, "CLI"), "030123456");
  EXPECT_EQ(Info(4, "DLI"), "4711");
}

TEST_F(CallAnswered, ConnectAcknowledgeBringsARedirectingNumberAndItsReason) {
  Offer(5);
  ASSERT_EQ(Texts(4), "030123456|4711||Voice");
  ASSERT_TRUE(Answer(Channel(4)));
  trunk.ToPeer();
  AddToMessage(0x0F, {0x74, 6, 0x21, 0x01, 0x82, '5', '5', '5'});
  const SPriEvent answer = trunk.PeerEvent(kPriAnswer);
  trunk.peer->ConnectAck(answer.call, answer.channel);
  trunk.Run();
  EXPECT_EQ(Texts(4), "030123456|4711|555|Voice RedirectNoReply");
}

TEST_F(CallAnswered, ConnectAcknowledgeKeepsTheTextsOfPartiesThatAreNotValid) {
  SPriEvent event;
  event.call = OwnCall();
  RingWithTexts(4, kNobodysCall, "kept");
  Raise(5, kPriConnectAck, event);
  EXPECT_EQ(Texts(4), "kept|kept|kept|Voice");
  EXPECT_TRUE(View(4).connected);
}

TEST_F(CallAnswered, ConnectAcknowledgeSwitchesEchoOffOnATrunkWithoutIt) {
  firstCard.Audio().SetEchoSwitch(0, true);
  Raise(5, kPriConnectAck);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
}

TEST_F(CallAnswered, AnswerConnectsAndLeavesEchoAndTextsAlone) {
  firstCard.Trunk(0).echoEnabled = true;
  Connect(6);
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(Info(6, "CLI"), "111");
  EXPECT_EQ(Info(6, "DLI"), "999");
}

TEST_F(CallAnswered, OneAnswerBringsOneConnectedAndOneConnectAcknowledge) {
  ASSERT_TRUE(Dial(Channel(6), "999", "111"));
  trunk.Run();
  application.Take();
  const SPriEvent ring = trunk.PeerEvent(kPriRing);
  trunk.peer->Answer(ring.call, ring.channel);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_CONNECTED, 0}}));
  const auto acknowledges = std::count_if(trunk.them.events.begin(), trunk.them.events.end(),
                                          [](const SPriEvent& event) { return event.code == kPriConnectAck; });
  EXPECT_EQ(acknowledges, 1);
}

// Nothing in the library makes a direction but 0.
class CallAnsweredByDirection : public CTrunkFixture, public ::testing::WithParamInterface<int32_t> {
 protected:
  CallAnsweredByDirection() : CTrunkFixture(GetParam()) {}
};

TEST_P(CallAnsweredByDirection, BringsPartiesOnlyOfAnIncomingCall) {
  Offer(5);
  const SPriEvent answer = OfCall(View(4).callHandle);
  RingWithTexts(4, kNobodysCall, "kept");
  Raise(5, kPriAnswer, answer);
  EXPECT_EQ(Texts(4), GetParam() < 1 ? "kept|kept|kept|Voice" : "030123456|4711|kept|Voice");
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
}

INSTANTIATE_TEST_SUITE_P(Directions, CallAnsweredByDirection, ::testing::Values(-1, 0, 1));

}  // namespace
}  // namespace zelk::test
