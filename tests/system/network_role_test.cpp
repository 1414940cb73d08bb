// SPDX-License-Identifier: GPL-2.0-only
#include "call_fixture.h"

namespace {

using cardsim::Call;
using cardsim::ESimCallState;
using cardsim::SAnswerPlan;

// The library as the network, a telephone system as the user at the far end of its trunks.
class NetworkRole : public CCallTest {
 protected:
  static constexpr auto kConnected = static_cast<uint32_t>(ZELK_EVENT_CONNECTED);
};

TEST_F(NetworkRole, answer_connects_at_once_on_the_applications_thread) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  Call call = Offer(1);
  EXPECT_TRUE(app->zelk.Answer(0));
  // No wait: the event has come when the function returns.
  const std::vector<support::SAppEvent> events = app->Events(0);
  ASSERT_GE(events.size(), 2U);
  EXPECT_EQ(events[1].code, kConnected);
  EXPECT_EQ(events[1].param, 0);
  EXPECT_EQ(events[1].thread, std::this_thread::get_id());
  EXPECT_NE(events[0].thread, std::this_thread::get_id());
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
  call->Hangup(31);
  EXPECT_EQ(WaitCause(0), 31);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(State(0), 3U);
  EXPECT_TRUE(NetworkIsIdle());
}

// A far end that acknowledges the answer brings a second CONNECTED on the control thread.
TEST_F(NetworkRole, an_acknowledged_answer_brings_a_second_connected) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  Offer(1);
  EXPECT_TRUE(app->zelk.Answer(0));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon, 2));
  const std::vector<support::SAppEvent> events = app->Events(0);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, kConnected, kConnected}));
  // One inside the answer, one on the card's thread, in either order: between threads there is none.
  const bool isOwnFirst = events[1].thread == std::this_thread::get_id();
  EXPECT_EQ(events[isOwnFirst ? 1 : 2].thread, std::this_thread::get_id());
  EXPECT_EQ(events[isOwnFirst ? 2 : 1].thread, events[0].thread);
  app->zelk.Hangup(0);
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_TRUE(NetworkIsIdle());
}

// Answer on an idle channel fails, resets and connects all the same.
TEST_F(NetworkRole, answer_on_an_idle_channel_fails_but_connects) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  EXPECT_TRUE(app->zelk.Answer(0));
  EXPECT_EQ(app->CallEvents(0), (Codes{kConnected}));
  EXPECT_EQ(app->Events(0)[0].thread, std::this_thread::get_id());
  EXPECT_TRUE(app->zelk.WaitLog("   0 :Answer() -> Answer() failed in Q931 Connect().\r\n")) << app->zelk.LogText();
  EXPECT_EQ(State(0), 3U);
  // The channel counts as connected: a second answer does nothing, a reject neither.
  EXPECT_TRUE(app->zelk.Answer(0));
  EXPECT_TRUE(app->zelk.Reject(0));
  EXPECT_EQ(app->CallEvents(0), (Codes{kConnected}));
  EXPECT_EQ(SentBeforeNow(), Names{});
}

TEST_F(NetworkRole, an_outgoing_call_gives_its_events_and_messages_in_order) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  Call call = ConnectOutgoing(0);
  app->zelk.Hangup(0);
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(app->CallEvents(0),
            (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
  ASSERT_TRUE(WaitFromLibrary("RELEASE COMPLETE"));
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (Names{"< SETUP", "> CALL PROCEEDING", "> ALERTING", "> CONNECT", "< CONNECT ACKNOWLEDGE", "< DISCONNECT",
                   "> RELEASE", "< RELEASE COMPLETE"}));
}

TEST_F(NetworkRole, a_busy_far_end_and_a_rejected_call_carry_their_causes) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  Card().SetAnswerPlan(SAnswerPlan::Refuse(17));
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  EXPECT_EQ(WaitCause(0), 17);
  Call call = Offer(2);
  EXPECT_FALSE(app->zelk.Reject(1));
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 21);
}

// An answer without a call leaves the channel connected; the next call on it is then hung up when it rings. The call
// that libpri reads from the event is none of its own, so nothing is sent.
TEST_F(NetworkRole, alerting_when_connected_hangs_up_if_the_trunk_says_so) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1, "HangupOnAlerting=1\n"));
  EXPECT_TRUE(app->zelk.Answer(0));
  ForgetAll();
  Card().SetAnswerPlan(SAnswerPlan::NeverAnswer());
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_DISCONNECTED}));
  EXPECT_EQ(State(0), 3U);
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "");
  EXPECT_EQ(SentBeforeNow(), (Names{"SETUP"}));
  Call call = Card().WaitCall(kSoon);
  ASSERT_NE(call, nullptr);
  EXPECT_FALSE(call->Reached(ESimCallState::kEnded));
  call->Hangup(19);
  EXPECT_EQ(WaitCause(0, 2), 19);
}

TEST_F(NetworkRole, without_hangup_on_alerting_the_same_call_rings_on) {
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  EXPECT_TRUE(app->zelk.Answer(0));
  ForgetAll();
  DialRinging(0);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING}));
  EXPECT_EQ(State(0), 4U);
}

TEST_F(NetworkRole, two_network_sides_are_reported_as_a_wrong_configuration) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  sim = std::make_unique<cardsim::CSimulator>(config);
  sim->Start();
  app = std::make_unique<support::CApplication>("[General]\nClientType=1\n");
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_TRUE(
      app->zelk.WaitLog("   G :Card 0: Trunk 0 - Configuration Incorrect. Please set ClientType=1 for NT or "
                        "ClientType=2 for TE\r\n",
                        10000))
      << app->zelk.LogText();
  EXPECT_EQ(app->Text(0, ZELK_INFO_CHANNELSTATE), "DOWN");
}

}  // namespace
