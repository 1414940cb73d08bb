// SPDX-License-Identifier: GPL-2.0-only
#include <map>

#include "call_fixture.h"

namespace {

using cardsim::Call;
using cardsim::ESimCallState;

class IncomingCalls : public CCallTest {};

TEST_F(IncomingCalls, every_redirect_reason_has_the_call_type_of_the_table) {
  struct SRow {
    const char* text;
    uint32_t code;
  };
  const std::map<int, SRow> table{
      {0, {"Voice RedirectUnknown", 7}},        {1, {"Voice RedirectBusy", 1}},
      {2, {"Voice RedirectNoReply", 2}},        {3, {"Voice RedirectDeflected", 4}},
      {9, {"Voice RedirectOutOfOrder", 5}},     {10, {"Voice RedirectForwarded", 6}},
      {15, {"Voice RedirectUnconditional", 3}},
  };
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (int reason = 0; reason < 16; ++reason) {
    const std::string redirecting = "0301111" + std::to_string(reason);
    Call call = Card().PlaceCall(
        {.timeslot = reason + (reason < 15 ? 1 : 2), .redirecting = redirecting, .redirectingReason = reason});
    ASSERT_TRUE(app->WaitEvent(reason, ZELK_EVENT_INCOMING_CALL, kSoon));
    const auto row = table.find(reason);
    EXPECT_EQ(app->Text(reason, ZELK_INFO_CALLTYPE), row == table.end() ? "Voice" : row->second.text) << reason;
    EXPECT_EQ(app->zelk.GetChannelInfo(reason, ZELK_INFO_CALLTYPE), row == table.end() ? 0 : row->second.code)
        << reason;
    EXPECT_EQ(app->Text(reason, ZELK_INFO_RLI), redirecting);
    // CONNECT ACKNOWLEDGE refreshes the numbers from the call record: they stay.
    app->zelk.Answer(reason);
    ASSERT_TRUE(app->WaitEvent(reason, ZELK_EVENT_CONNECTED, kSoon));
    EXPECT_EQ(app->Text(reason, ZELK_INFO_CALLTYPE), row == table.end() ? "Voice" : row->second.text) << reason;
    EXPECT_EQ(app->Text(reason, ZELK_INFO_RLI), redirecting);
    call->Hangup();
    ASSERT_EQ(WaitCause(reason), 16);
    EXPECT_EQ(app->Text(reason, ZELK_INFO_RLI), "");
    EXPECT_EQ(app->zelk.GetChannelInfo(reason, ZELK_INFO_CALLTYPE), 0U);
  }
}

TEST_F(IncomingCalls, a_caller_without_number_leaves_an_empty_text) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Card().PlaceCall({.timeslot = 1, .calling = "", .called = "8"});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "");
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "8");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "Voice");
}

// A call cleared before the answer gives its events and messages in order.
TEST_F(IncomingCalls, cleared_before_the_answer_give_all_events_in_order) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  call->Hangup(16);
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_DISCONNECTED}));
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (Names{"> SETUP", "< CALL PROCEEDING", "< ALERTING", "> DISCONNECT", "< RELEASE", "> RELEASE COMPLETE"}));
  EXPECT_EQ(State(0), 3U);
}

TEST_F(IncomingCalls, hanging_up_an_offered_call_clears_it_with_cause_16) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  EXPECT_TRUE(app->zelk.Hangup(0));
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 16);
  EXPECT_EQ(call->ClearedBy(), cardsim::EClearedBy::kLibrary);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_DISCONNECTED}));
}

// Every cause of the far end reaches the application with its name.
TEST_F(IncomingCalls, every_cause_reaches_the_application_with_its_name) {
  const std::vector<std::pair<int, const char*>> causes{{1, "UNALLOCATED"},
                                                        {16, "NORMAL_CLEARING"},
                                                        {17, "USER_BUSY"},
                                                        {19, "NO_ANSWER"},
                                                        {21, "CALL_REJECTED"},
                                                        {31, "NORMAL_UNSPECIFIED"},
                                                        {34, "NORMAL_CIRCUIT_CONGESTION"},
                                                        {41, "NORMAL_TEMPORARY_FAILURE"},
                                                        {44, "REQUESTED_CHAN_UNAVAIL"},
                                                        {102, "RECOVERY_ON_TIMER_EXPIRE"},
                                                        {111, "PROTOCOL_ERROR"},
                                                        {127, "INTERWORKING"},
                                                        {10, "REASON_UNKNOWN"},
                                                        {23, "REASON_UNKNOWN"},
                                                        {110, "REASON_UNKNOWN"}};
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (const auto& [cause, name] : causes) {
    app->Forget();
    Call call = ConnectIncoming(1);
    call->Hangup(cause);
    EXPECT_EQ(WaitCause(0), cause);
    EXPECT_STREQ(app->zelk.DisconnectReasonToString(cause), name);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
  for (const int32_t outside : {0, -1, 128, 0x7FFFFFFF}) {
    EXPECT_STREQ(app->zelk.DisconnectReasonToString(outside), "REASON_UNKNOWN");
  }
}

// Every number from 1 to 127 is taken as the cause of a disconnect.
TEST_F(IncomingCalls, every_number_from_1_to_127_is_taken_as_a_cause) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (int first = 1; first < 128; first += kChannelsPerTrunk) {
    app->Forget();
    std::map<int32_t, Call> calls;
    for (int32_t channel = 0; channel < kChannelsPerTrunk && first + channel < 128; ++channel) {
      calls[channel] = Card().PlaceCall({.timeslot = channel < 15 ? channel + 1 : channel + 2});
    }
    for (const auto& [channel, call] : calls) {
      ASSERT_TRUE(call->WaitState(ESimCallState::kAlerting, kSoon));
      // Past libpri, as it stands.
      call->SendMessage(0x45, {0x08, 0x02, 0x82, static_cast<uint8_t>(0x80 | (first + channel))});
    }
    for (const auto& [channel, call] : calls) {
      ASSERT_EQ(WaitCause(channel), first + channel);
      ASSERT_TRUE(call->WaitEnded(kSoon)) << first + channel;
    }
  }
}

TEST_F(IncomingCalls, a_release_without_a_disconnect_ends_with_its_cause) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  call->SendMessage(0x4D, {0x08, 0x02, 0x82, 0x80 | 41});
  EXPECT_EQ(WaitCause(0), 41);
  ASSERT_TRUE(WaitFromLibrary("RELEASE COMPLETE"));
  EXPECT_EQ(FromLibrary("RELEASE COMPLETE")[0].Cause(), 16);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_DISCONNECTED}));
  EXPECT_EQ(State(0), 3U);
  EXPECT_TRUE(NetworkIsIdle());
}

// A CONNECT ACKNOWLEDGE that names parties corrects the numbers of the call.
TEST_F(IncomingCalls, a_connect_acknowledge_with_parties_corrects_the_numbers) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "5551000");
  // Another one of the same call: calling number 42; redirecting number 555, no reply.
  call->SendMessage(0x0F, {0x6C, 0x04, 0x21, 0x81, '4', '2', 0x74, 0x06, 0x21, 0x01, 0x82, '5', '5', '5'});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon, 2));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "42");
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "100");
  EXPECT_EQ(app->Text(0, ZELK_INFO_RLI), "555");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "Voice RedirectNoReply");
  EXPECT_EQ(app->zelk.GetChannelInfo(0, ZELK_INFO_CALLTYPE), 2U);
  call->Hangup();
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_EQ(app->Text(0, ZELK_INFO_RLI), "");
}

TEST_F(IncomingCalls, digits_that_come_after_the_offer_change_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  ForgetAll();
  call->SendMessage(0x7B, {0x70, 0x03, 0x81, '7', '7'});  // INFORMATION
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "100");
  EXPECT_EQ(State(0), 4U);
}

// Reject of an offered call sends cause 21 and brings no event of its own.
TEST_F(IncomingCalls, reject_sends_cause_21_and_brings_no_event_of_its_own) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  EXPECT_FALSE(app->zelk.Reject(0));
  // Free at once, before the network has confirmed.
  EXPECT_EQ(State(0), 3U);
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "");
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 21);
  const std::vector<cardsim::SQ931Message> sent = FromLibrary("DISCONNECT");
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].Cause(), 21);
  // What comes besides is the network's release of a channel that is idle.
  ASSERT_TRUE(WaitFromLibrary("RELEASE COMPLETE"));
  EXPECT_EQ(WaitCause(0), 21);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_DISCONNECTED}));
  EXPECT_TRUE(NetworkIsIdle());
}

TEST_F(IncomingCalls, reject_and_answer_of_a_connected_call_send_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  EXPECT_TRUE(app->zelk.Reject(0));
  EXPECT_TRUE(app->zelk.Answer(0));
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_EQ(State(0), 4U);
  EXPECT_TRUE(app->CallEvents(0).empty());
}

TEST_F(IncomingCalls, operations_on_an_idle_channel_send_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  EXPECT_TRUE(app->zelk.Hangup(0));
  EXPECT_FALSE(app->zelk.Reject(0));
  EXPECT_TRUE(app->zelk.Answer(0));
  EXPECT_FALSE(app->zelk.Transfer(0));
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(State(0), 3U);
  EXPECT_TRUE(app->zelk.WaitLog("   0 :Answer() -> Answer() failed in Q931 Connect().\r\n")) << app->zelk.LogText();
  EXPECT_EQ(app->zelk.GetLastError(0), 0U);
}

TEST_F(IncomingCalls, transfer_does_nothing_to_a_call) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  EXPECT_FALSE(app->zelk.Transfer(0));
  EXPECT_FALSE(app->zelk.Transfer(-1));
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_EQ(State(0), 4U);
}

TEST_F(IncomingCalls, operations_on_channels_that_do_not_exist_fail) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (const int32_t channel : {-1, 30, 1023, 1024, 0x7FFFFFFF}) {
    EXPECT_FALSE(app->zelk.Dial(channel, "1", "2"));
    EXPECT_FALSE(app->zelk.Answer(channel));
    EXPECT_FALSE(app->zelk.Hangup(channel));
    EXPECT_FALSE(app->zelk.Reject(channel));
    EXPECT_FALSE(app->zelk.Transfer(channel));
    EXPECT_EQ(app->zelk.GetLastError(channel), 1U);
    EXPECT_EQ(app->zelk.GetChannelInfoString(channel, ZELK_INFO_LINETYPE), nullptr);
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_LINETYPE), 0U);
    EXPECT_EQ(app->zelk.SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 0), 0U);
  }
}

TEST_F(IncomingCalls, for_the_signalling_or_framing_timeslot_get_no_reply) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (const uint8_t timeslot : {uint8_t{0}, uint8_t{16}}) {
    ForgetAll();
    // SETUP: speech over A-law, this timeslot and no other, called number 8.
    Card().SendQ931(0, {0x08, 0x02, 0x12, timeslot, 0x05, 0x04, 0x03, 0x80, 0x90, 0xA3, 0x18, 0x03, 0xA9, 0x83,
                        static_cast<uint8_t>(0x80 | timeslot), 0x70, 0x02, 0xA1, '8'});
    EXPECT_EQ(SentBeforeNow(), Names{}) << int{timeslot};
    EXPECT_EQ(app->Count(ZELK_EVENT_INCOMING_CALL), 1U);
  }
}

}  // namespace
