// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/simulator.h"

#include <gtest/gtest.h>

#include <asio.hpp>
#include <system_error>

#include "mini_library.h"
#include "support/eventually.h"

namespace cardsim::test {
namespace {

class Simulator : public testing::Test {
 protected:
  void SetUp() override { sim.Start(); }
  CCard& Card() { return sim.Card(0); }

  CSimulator sim{SSimulatorConfig::WithTrunks({1})};
};

TEST_F(Simulator, AnswersAProbeFromEachCardsOwnAddress) {
  CSimulator second(SSimulatorConfig::WithTrunks({2, 4}, "127.0.2.1"));
  second.Start();
  asio::io_context io;
  asio::ip::udp::socket receiver(io, {asio::ip::make_address_v4("127.0.0.1"), kCardPort});
  asio::ip::udp::socket sender(io, asio::ip::udp::v4());
  sender.set_option(asio::socket_base::broadcast(true));
  sender.send_to(asio::buffer("ZELK D", 6), {asio::ip::make_address_v4("127.255.255.255"), kCardPort});

  std::set<std::string> cards;
  while (cards.size() < 3) {
    Bytes datagram(100);
    asio::ip::udp::endpoint from;
    datagram.resize(receiver.receive_from(asio::buffer(datagram), from));
    ASSERT_GE(datagram.size(), 15U);
    EXPECT_EQ(std::string(datagram.begin(), datagram.begin() + 6), "ZELK R");
    EXPECT_EQ(datagram[6], 1);
    EXPECT_EQ(from.port(), kCardPort);
    cards.insert(from.address().to_string());
  }
  EXPECT_EQ(cards, (std::set<std::string>{"127.0.1.1", "127.0.2.1", "127.0.2.2"}));
}

TEST_F(Simulator, ASecondOneOnTheSameAddressIsRefusedWithTheAddressNamed) {
  CSimulator second(SSimulatorConfig::WithTrunks({1}));
  try {
    second.Start();
    FAIL() << "two cards on one address";
  } catch (const std::system_error& error) {
    EXPECT_NE(std::string(error.what()).find("127.0.1.1:5854"), std::string::npos) << error.what();
  }
}

TEST_F(Simulator, StartsAgainOnTheSameAddressAtOnce) {
  for (int i = 0; i < 5; ++i) {
    sim.Stop();
    CSimulator next(SSimulatorConfig::WithTrunks({1}));
    next.Start();
    CMiniLibrary library(next.Card(0).Address());
    library.SetUp();
    EXPECT_TRUE(next.Card(0).WaitUp(5s));
  }
}

TEST_F(Simulator, SetUpBringsTheTrunkUpAndAudioFlows) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().Seen().WaitReady(5s));
  ASSERT_TRUE(Card().WaitUp(5s));
  Card().Audio().KeepReplies(true);
  ASSERT_TRUE(Card().Audio().WaitReplies(20, 5s));
  const SAudioStatistics statistics = Card().Audio().Statistics();
  EXPECT_EQ(statistics.firstReplySequence, 0U);
  EXPECT_EQ(statistics.late, 0U);
  EXPECT_EQ(statistics.missing, 0U);
  EXPECT_EQ(statistics.wrongSize, 0U);
  EXPECT_EQ(statistics.sequenceGaps, 0U);
  EXPECT_EQ(statistics.surplus, 0U);
}

TEST_F(Simulator, CardInformationAndTrunkStatusAreTheBytesOfTheProtocol) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(library.WaitReceived(27, 5s));
  Bytes expected{0xFF, 0x01, 'Z',  'E',  'L',  'K', ' ', 7, 1,  0,  0, 0,
                 0,    0xA1, 0x86, 0x01, 0x00, 20,  24,  3, 15, 13, 5, 9};
  expected.insert(expected.end(), {0xFF, 0x07, 0x00});
  const Bytes received = library.Received();
  EXPECT_EQ(Bytes(received.begin(), received.begin() + 27), expected);
}

TEST_F(Simulator, InformationMayComeLate) {
  Card().SetAnswerDelay(300ms);
  CMiniLibrary library(Card().Address());
  const auto begin = std::chrono::steady_clock::now();
  library.Write({0xFF, 0x01});
  library.Run();
  ASSERT_TRUE(library.WaitReceived(24, 5s));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
}

TEST_F(Simulator, HdlcErrorsComeAsManyAsAsked) {
  CMiniLibrary library(Card().Address());
  library.Run();
  ASSERT_TRUE(Card().Seen().WaitConnected(true, 5s));
  Card().SendHdlcErrors(0, 3, 5);
  ASSERT_TRUE(library.WaitReceived(20, 5s));
  Bytes expected;
  for (int i = 0; i < 5; ++i) {
    expected.insert(expected.end(), {0xFF, 0x11, 0x00, 0x03});
  }
  EXPECT_EQ(library.Received(), expected);
}

TEST_F(Simulator, OfferedCallIsConnectedAndClearedByTheNetwork) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  SCallRequest request;
  request.timeslot = 17;
  request.calling = "123";
  request.called = "456";
  const Call call = Card().PlaceCall(request);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
  EXPECT_TRUE(call->Reached(ESimCallState::kProceeding));
  EXPECT_TRUE(call->Reached(ESimCallState::kAlerting));
  EXPECT_EQ(library.Event(CMiniLibrary::kRing).calling, "123");
  EXPECT_EQ(library.Event(CMiniLibrary::kRing).called, "456");
  EXPECT_EQ(library.Event(CMiniLibrary::kRing).timeslot, 17);
  call->Hangup(17);
  ASSERT_TRUE(call->WaitEnded(5s));
  EXPECT_EQ(library.Event(CMiniLibrary::kHangupReq).cause, 17);
  EXPECT_EQ(call->Cause(), 17);
  EXPECT_EQ(call->ClearedBy(), EClearedBy::kNetwork);
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (std::vector<std::string>{"> SETUP", "< CALL PROCEEDING", "< ALERTING", "< CONNECT",
                                      "> CONNECT ACKNOWLEDGE", "> DISCONNECT", "< RELEASE", "> RELEASE COMPLETE"}));
}

TEST_F(Simulator, RefusedCallEndsWithTheLibrarysCause) {
  CMiniLibrary library(Card().Address());
  library.refuseCause = 21;
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  const Call call = Card().PlaceCall({});
  ASSERT_TRUE(call->WaitEnded(5s)) << testing::PrintToString(Card().Seen().Q931Names(0));
  EXPECT_FALSE(call->Reached(ESimCallState::kConnected));
  EXPECT_EQ(call->Cause(), 21);
  EXPECT_EQ(call->ClearedBy(), EClearedBy::kLibrary);
}

TEST_F(Simulator, CallFromTheLibraryFollowsThePlanAndIsHungUpByTheFarEnd) {
  SAnswerPlan plan;
  plan.alertAfter = 10ms;
  plan.answerAfter = 30ms;
  plan.farEnd.hangupAfter = 20ms;
  plan.farEnd.hangupCause = 31;
  Card().SetAnswerPlan(plan);
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  library.Dial(3, "0301");
  const Call call = Card().WaitCall(5s);
  ASSERT_NE(call, nullptr);
  EXPECT_EQ(call->Called(), "0301");
  EXPECT_EQ(call->Calling(), "700");
  EXPECT_EQ(call->Timeslot(), 3);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
  ASSERT_TRUE(call->WaitEnded(5s));
  EXPECT_EQ(library.Event(CMiniLibrary::kHangupReq).cause, 31);
}

TEST_F(Simulator, CallFromTheLibraryIsRefusedWithTheCauseOfThePlan) {
  Card().SetAnswerPlan(SAnswerPlan::Refuse(1));
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  library.Dial(1, "999");
  const Call call = Card().WaitCall(5s);
  ASSERT_NE(call, nullptr);
  ASSERT_TRUE(call->WaitEnded(5s));
  EXPECT_FALSE(call->Reached(ESimCallState::kConnected));
  ASSERT_TRUE(library.WaitEvent(CMiniLibrary::kHangupReq, 5s));
  EXPECT_EQ(library.Event(CMiniLibrary::kHangupReq).cause, 1);
}

TEST_F(Simulator, ARefusalAtOnceIsAReleaseCompleteAndFreesTheTimeslot) {
  SAnswerPlan plan = SAnswerPlan::Refuse(1);
  plan.proceeding = false;
  Card().SetAnswerPlan(plan);
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  for (int i = 0; i < 2; ++i) {
    library.Dial(1, "999");
    const Call call = Card().WaitCall(5s);
    ASSERT_NE(call, nullptr);
    ASSERT_TRUE(call->WaitEnded(5s));
    EXPECT_EQ(call->Cause(), 1);
  }
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (std::vector<std::string>{"< SETUP", "> RELEASE COMPLETE", "< SETUP", "> RELEASE COMPLETE"}));
}

TEST_F(Simulator, CallHungUpByTheLibraryCarriesItsCause) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  library.Dial(2, "100");
  const Call call = Card().WaitCall(5s);
  ASSERT_NE(call, nullptr);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
  library.Hangup(16);
  ASSERT_TRUE(call->WaitEnded(5s));
  EXPECT_EQ(call->ClearedBy(), EClearedBy::kLibrary);
  EXPECT_EQ(call->Cause(), 16);
  // The timeslot is free again.
  library.Dial(2, "101");
  const Call again = Card().WaitCall(5s);
  ASSERT_NE(again, nullptr);
  EXPECT_TRUE(again->WaitState(ESimCallState::kConnected, 5s));
}

TEST_F(Simulator, SoundPlayedInACallComesBackBitExact) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  const Bytes sound = RenderTestPattern(4001, 1);
  SCallRequest request;
  request.farEnd.play = MakeBytesSource(sound);
  const Call call = Card().PlaceCall(request);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
  std::size_t at = 0;
  ASSERT_TRUE(call->Heard()->WaitContains(sound, 5s, &at));
  EXPECT_TRUE(call->WaitPlayed(0s));
  const Bytes heard = call->Recorded();
  EXPECT_EQ(heard[at + sound.size()], kSilence);
}

TEST_F(Simulator, EightTrunksSendTheRightTimeslotsToTheRightRecorders) {
  CSimulator wide(SSimulatorConfig::WithTrunks({8}, "127.0.3.1"));
  wide.Start();
  CMiniLibrary library("127.0.3.1", 8);
  CCard& card = wide.Card(0);
  std::map<std::pair<int, int>, std::pair<Bytes, Recorder>> pairs;
  for (const auto& [trunk, timeslot] : std::vector<std::pair<int, int>>{{0, 1}, {3, 15}, {7, 31}, {7, 17}}) {
    const Bytes sound = RenderTestPattern(1000, static_cast<std::uint32_t>(trunk * 100 + timeslot));
    pairs[{trunk, timeslot}] = {sound, card.RecordTimeslot(trunk, timeslot)};
    card.Audio().Play(trunk, timeslot, MakeBytesSource(sound));
  }
  library.SetUp();
  for (const auto& [place, expected] : pairs) {
    EXPECT_TRUE(expected.second->WaitContains(expected.first, 5s)) << place.first << "/" << place.second;
  }
  EXPECT_EQ(card.Audio().FramesPerPacket(), 5);
}

TEST_F(Simulator, SilentLibraryShowsAsMissingReplies) {
  CMiniLibrary library(Card().Address());
  library.replyToAudio = false;
  library.SetUp();
  ASSERT_TRUE(Card().Seen().WaitReady(5s));
  ASSERT_TRUE(support::Eventually([&] { return library.packets >= 10; }));
  Card().Audio().SetPacing(false);
  sim.Stop();
  const SAudioStatistics statistics = Card().Audio().Statistics();
  EXPECT_EQ(statistics.replies, 0U);
  EXPECT_EQ(statistics.missing + statistics.cutOff, statistics.packetsSent - 1);  // the first asks for none
}

TEST_F(Simulator, DroppedControlConnectionEndsItsCallsAsLost) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  const Call call = Card().PlaceCall({});
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
  Card().DropControl();
  ASSERT_TRUE(library.WaitClosed(5s));
  ASSERT_TRUE(call->WaitEnded(5s));
  EXPECT_EQ(call->ClearedBy(), EClearedBy::kLost);
  CMiniLibrary next(Card().Address());
  next.SetUp();
  EXPECT_TRUE(Card().WaitUp(5s));
}

TEST_F(Simulator, RestartAtAnotherAddressAnnouncesFromThere) {
  asio::io_context io;
  asio::ip::udp::socket listener(io, asio::ip::udp::v4());
  listener.set_option(asio::socket_base::reuse_address(true));
  listener.bind({asio::ip::address_v4::any(), kCardPort});
  Card().Restart("127.0.1.99");
  Bytes datagram(100);
  asio::ip::udp::endpoint from;
  datagram.resize(listener.receive_from(asio::buffer(datagram), from));
  EXPECT_EQ(from.address().to_string(), "127.0.1.99");
  ASSERT_GE(datagram.size(), 22U);
  EXPECT_EQ(std::string(datagram.begin(), datagram.begin() + 6), "ZELK B");
  EXPECT_EQ(ReadLe32(&datagram[18]), Card().Serial());
  CMiniLibrary library("127.0.1.99");
  library.SetUp();
  EXPECT_TRUE(Card().WaitUp(5s));
}

TEST_F(Simulator, Layer2TakenDownComesUpAgain) {
  CMiniLibrary library(Card().Address());
  library.SetUp();
  ASSERT_TRUE(Card().WaitUp(5s));
  Card().TakeLayer2Down(0);
  EXPECT_TRUE(library.WaitEvent(CMiniLibrary::kDown, 5s));
  EXPECT_TRUE(library.WaitEvent(CMiniLibrary::kUp, 5s, 2));
  const Call call = Card().PlaceCall({});
  EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, 10s));
}

TEST_F(Simulator, RegisterReadIsAnswered) {
  CMiniLibrary library(Card().Address());
  library.Run();
  library.Write({0xFF, 0x02, 0x01, 0x06, 0x10, 0xFF});
  ASSERT_TRUE(library.WaitReceived(6, 5s));
  EXPECT_EQ(library.Received(), (Bytes{0xFF, 0x02, 0x00, 0x06, 0x10, 0x5A}));
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kRegisterRead, 5s));
}

TEST(SimulatorConfiguration, OutOfRangeIsRefused) {
  EXPECT_THROW(CSimulator(SSimulatorConfig{}), std::invalid_argument);
  EXPECT_THROW(SSimulatorConfig::WithTrunks({9}), std::invalid_argument);
  EXPECT_THROW(SSimulatorConfig::WithTrunks({1}, "127.0.0"), std::invalid_argument);
  SSimulatorConfig config = SSimulatorConfig::WithTrunks({1});
  config.cards[0].framesPerPacket = 17;  // 552 bytes
  EXPECT_THROW(CSimulator{config}, std::invalid_argument);
}

}  // namespace
}  // namespace cardsim::test
