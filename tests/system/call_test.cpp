// SPDX-License-Identifier: GPL-2.0-only
#include "system_fixture.h"

namespace {

using cardsim::Call;
using cardsim::ESimCallState;

using Codes = std::vector<uint32_t>;
using Names = std::vector<std::string>;

class Calls : public CSystemTest {
 protected:
  void StartOpen(const std::vector<int>& trunksOfCards, const std::string& ini = {}) {
    ASSERT_NO_FATAL_FAILURE(Start(trunksOfCards, ini));
    OpenAll();
    sim->Card(0).ClearSeen();
  }

  // An incoming call on channel 0, answered and connected at both ends.
  Call ConnectIncoming() {
    Call call = Card().PlaceCall({.timeslot = 1, .calling = "0305551234", .called = "8001000"});
    EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
    EXPECT_TRUE(app->zelk.Answer(0));
    EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
    EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
    return call;
  }

  uint32_t State(int32_t channel) { return app->zelk.GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE); }
};

// Incoming call cleared by the far end gives its events and messages in order.
TEST_F(Calls, incoming_cleared_by_the_far_end_events_and_messages_in_order) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Card().PlaceCall({.timeslot = 1, .calling = "0305551234", .called = "8001000"});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "0305551234");
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "8001000");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "Voice");
  EXPECT_EQ(State(0), static_cast<uint32_t>(ZELK_CHANNEL_INUSE));
  ASSERT_TRUE(call->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_TRUE(app->zelk.Answer(0));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
  call->Hangup(31);
  int32_t cause = 0;
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon, 1, &cause));
  EXPECT_EQ(cause, 31);
  EXPECT_STREQ(app->zelk.DisconnectReasonToString(cause), "NORMAL_UNSPECIFIED");
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (Names{"> SETUP", "< CALL PROCEEDING", "< ALERTING", "< CONNECT", "> CONNECT ACKNOWLEDGE", "> DISCONNECT",
                   "< RELEASE", "> RELEASE COMPLETE"}));
  EXPECT_EQ(State(0), static_cast<uint32_t>(ZELK_CHANNEL_READY));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "");
}

// Incoming call cleared by the application gives its events and messages in order.
TEST_F(Calls, incoming_cleared_by_the_application_all_in_order) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming();
  EXPECT_TRUE(app->zelk.Hangup(0));
  int32_t cause = 0;
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon, 1, &cause));
  EXPECT_EQ(cause, 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 16);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
  ASSERT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kFromLibrary, "RELEASE COMPLETE", kSoon));
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (Names{"> SETUP", "< CALL PROCEEDING", "< ALERTING", "< CONNECT", "> CONNECT ACKNOWLEDGE", "< DISCONNECT",
                   "> RELEASE", "< RELEASE COMPLETE"}));
}

// Outgoing call cleared by the application gives its events and messages in order.
TEST_F(Calls, outgoing_cleared_by_the_application_all_in_order) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  EXPECT_TRUE(app->zelk.Dial(16, "0405556789", "8001000"));
  EXPECT_EQ(State(16), static_cast<uint32_t>(ZELK_CHANNEL_INUSE));
  ASSERT_TRUE(app->WaitEvent(16, ZELK_EVENT_CONNECTED, kSoon));
  Call call = Card().WaitCall(kSoon);
  ASSERT_NE(call, nullptr);
  EXPECT_EQ(call->Called(), "0405556789");
  EXPECT_EQ(call->Calling(), "8001000");
  EXPECT_EQ(call->Timeslot(), 18);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
  EXPECT_TRUE(app->zelk.Hangup(16));
  int32_t cause = 0;
  ASSERT_TRUE(app->WaitEvent(16, ZELK_EVENT_DISCONNECTED, kSoon, 1, &cause));
  EXPECT_EQ(cause, 16);
  EXPECT_EQ(app->CallEvents(16),
            (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
  ASSERT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kFromLibrary, "RELEASE COMPLETE", kSoon));
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (Names{"< SETUP", "> CALL PROCEEDING", "> ALERTING", "> CONNECT", "< CONNECT ACKNOWLEDGE", "< DISCONNECT",
                   "> RELEASE", "< RELEASE COMPLETE"}));
}

TEST_F(Calls, outgoing_call_cleared_by_the_far_end_carries_its_cause) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  cardsim::SAnswerPlan plan;
  plan.farEnd.hangupAfter = std::chrono::milliseconds(50);
  plan.farEnd.hangupCause = 27;
  Card().SetAnswerPlan(plan);
  EXPECT_TRUE(app->zelk.Dial(0, "1", nullptr));
  int32_t cause = 0;
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon, 1, &cause));
  EXPECT_EQ(cause, 27);
  EXPECT_EQ(app->CallEvents(0),
            (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
}

TEST_F(Calls, busy_far_end_is_a_disconnect_with_cause_17) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Card().SetAnswerPlan(cardsim::SAnswerPlan::Refuse(17));
  EXPECT_TRUE(app->zelk.Dial(0, "1", nullptr));
  int32_t cause = 0;
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon, 1, &cause));
  EXPECT_EQ(cause, 17);
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "");
  EXPECT_EQ(State(0), static_cast<uint32_t>(ZELK_CHANNEL_READY));
}

// Reject clears the offered call with cause 21 and frees the channel without an event.
TEST_F(Calls, reject_clears_with_cause_21_and_frees_without_an_event) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Card().PlaceCall({.timeslot = 3});
  ASSERT_TRUE(app->WaitEvent(2, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_FALSE(app->zelk.Reject(2));
  EXPECT_EQ(State(2), static_cast<uint32_t>(ZELK_CHANNEL_READY));
  EXPECT_EQ(app->Text(2, ZELK_INFO_CALLTYPE), "");
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 21);
}

// A channel that allows no incoming calls refuses with cause 44 unheard.
TEST_F(Calls, a_channel_without_incoming_calls_refuses_with_cause_44) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  EXPECT_EQ(app->zelk.SetChannelInfo(2, ZELK_SET_ALLOWINCOMING, 0), 1U);
  Call call = Card().PlaceCall({.timeslot = 3});
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 44);
  EXPECT_TRUE(app->CallEvents(2).empty());
}

// A second dial on a channel with a call is refused and leaves the called number.
TEST_F(Calls, a_second_dial_is_refused_and_leaves_the_called_number) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Card().SetAnswerPlan(cardsim::SAnswerPlan::NeverAnswer());
  EXPECT_TRUE(app->zelk.Dial(0, "111", "222"));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_ALERTING, kSoon));
  EXPECT_FALSE(app->zelk.Dial(0, "333", "444"));
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "111");
}

// A call on a trunk that goes down ends with channel state 0 and no disconnect.
TEST_F(Calls, a_trunk_that_goes_down_ends_its_calls_by_channel_state_0) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming();
  app->Forget();
  Card().LoseLayer2(0);
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CHANNEL_STATE, kSlow)) << app->zelk.LogText();
  EXPECT_EQ(app->Events(0).front().param, 0);
  EXPECT_EQ(State(0), static_cast<uint32_t>(ZELK_CHANNEL_DOWN));
  EXPECT_TRUE(app->CallEvents(0).empty());
}

// Channel 105: timeslot 17 of the second trunk of the second card.
TEST_F(Calls, of_a_second_card_have_their_own_channels_and_timeslots) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2, 2}));
  ASSERT_TRUE(sim->Card(1).WaitUp(kSlow));
  sim->Card(1).ClearSeen();
  Call call = Card(1).PlaceCall({.trunk = 1, .timeslot = 17});
  ASSERT_TRUE(app->WaitEvent(105, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_TRUE(app->zelk.Answer(105));
  ASSERT_TRUE(app->WaitEvent(105, ZELK_EVENT_CONNECTED, kSoon));
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
  Card(1).RestartTimeslot(1, 17);
  ASSERT_TRUE(app->WaitEvent(105, ZELK_EVENT_DISCONNECTED, kSoon));
  ASSERT_TRUE(call->WaitEnded(kSoon));

  EXPECT_TRUE(app->zelk.Dial(105, "0405556789", nullptr));
  ASSERT_TRUE(app->WaitEvent(105, ZELK_EVENT_CONNECTED, kSoon, 2));
  call = Card(1).WaitCall(kSoon);
  ASSERT_NE(call, nullptr);
  EXPECT_EQ(call->trunk, 1);
  EXPECT_EQ(call->Timeslot(), 17);
  EXPECT_TRUE(app->zelk.Hangup(105));
  ASSERT_TRUE(app->WaitEvent(105, ZELK_EVENT_DISCONNECTED, kSoon, 2));
  EXPECT_TRUE(Card(0).Seen().Q931Names(0).empty());
  EXPECT_TRUE(Card(0).Seen().Q931Names(1).empty());
  EXPECT_TRUE(Card(1).Seen().Q931Names(0).empty());
}

// A second card's call without a channel is given a number of the whole table and no channel.
TEST_F(Calls, of_a_second_card_without_a_channel_get_none) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2, 2}));
  ASSERT_TRUE(sim->Card(1).WaitUp(kSlow));
  Card(1).PlaceCall({.trunk = 0, .timeslot = cardsim::SCallRequest::kAnyChannel});
  ASSERT_TRUE(Card(1).Seen().WaitQ931(0, cardsim::EDirection::kFromLibrary, "SETUP ACKNOWLEDGE", kSoon));
  for (const cardsim::SFrameRecord& frame : Card(1).Seen().Frames()) {
    const cardsim::SQ931Message message = frame.Decode().message;
    if (message.valid && message.name == "SETUP ACKNOWLEDGE") {
      EXPECT_EQ(message.Timeslot(), 62);  // channel 60 is free
    }
  }
  // With none free it is refused like on any card; the line names the card's index.
  for (int32_t channel = 90; channel < 120; ++channel) {
    app->zelk.CloseChannel(channel);
  }
  Call refused = Card(1).PlaceCall({.trunk = 1, .timeslot = cardsim::SCallRequest::kAnyChannel});
  ASSERT_TRUE(refused->WaitEnded(kSoon));
  EXPECT_EQ(refused->Cause(), 44);
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 1: Trunk 1 - New Call aborted due to BCHANNEL unavailable\r\n"))
      << app->zelk.LogText();
  EXPECT_EQ(app->Count(ZELK_EVENT_INCOMING_CALL), 0U);
}

}  // namespace
