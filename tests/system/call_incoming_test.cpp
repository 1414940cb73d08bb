#include <map>

#include "call_fixture.h"

namespace {

using cardsim::Call;
using cardsim::ESimCallState;
using cardsim::SCallRequest;

class CIncomingCalls : public CCallTest {};

// What an application reads of a channel in one state of its calls.
struct SRead {
  std::string cli, dli, rli, callType, state;
  uint32_t stateCode = 0;
};
bool operator==(const SRead& a, const SRead& b) {
  return a.cli == b.cli && a.dli == b.dli && a.rli == b.rli && a.callType == b.callType && a.state == b.state &&
         a.stateCode == b.stateCode;
}
std::ostream& operator<<(std::ostream& out, const SRead& read) {
  return out << read.cli << '|' << read.dli << '|' << read.rli << '|' << read.callType << '|' << read.state << '|'
             << read.stateCode;
}

class CInformation : public CCallTest {
 protected:
  SRead Read(int32_t channel) {
    ExpectFixedKeys(channel);
    return {app->Text(channel, ZELK_INFO_CLI),          app->Text(channel, ZELK_INFO_DLI),
            app->Text(channel, ZELK_INFO_RLI),          app->Text(channel, ZELK_INFO_CALLTYPE),
            app->Text(channel, ZELK_INFO_CHANNELSTATE), State(channel)};
  }

  // The keys that no call changes, and the codes that have no value.
  void ExpectFixedKeys(int32_t channel) {
    EXPECT_EQ(app->Text(channel, ZELK_INFO_SERIALNO), std::to_string(Card().Serial()));
    EXPECT_EQ(app->Text(channel, ZELK_INFO_DIRECTION), "OUTGOING");
    EXPECT_EQ(app->Text(channel, ZELK_INFO_LINETYPE), "PRI");
    EXPECT_EQ(app->Text(channel, ZELK_INFO_OPENTYPE), "ALAW");
    EXPECT_EQ(app->Text(channel, ZELK_INFO_FIRMWAREVER), "7");
    EXPECT_EQ(app->Text(channel, ZELK_INFO_FIRMWAREDATE), "20240315");
    EXPECT_NE(app->Text(channel, ZELK_INFO_BURNDATE), "");
    for (const uint32_t code : {0U, 8U, 9U, 256U, 262U, 263U, 264U, 0xFFFFFFFFU}) {
      EXPECT_EQ(app->zelk.GetChannelInfoString(channel, code), nullptr) << code;
    }
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_SERIALNO), Card().Serial());
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_DIRECTION), 79U);
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_CALLTYPE), 0U);
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_LINETYPE), 1U);
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_OPENTYPE), 2U);
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_TRUNK), 0U);
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT), channel < 15 ? channel + 1U : channel + 2U);
    for (const uint32_t code : {0U, 2U, 3U, 4U, 8U, 256U, 259U, 260U, 261U, 264U, 0xFFFFFFFFU}) {
      EXPECT_EQ(app->zelk.GetChannelInfo(channel, code), 0U) << code;
    }
    EXPECT_EQ(app->zelk.GetLastError(channel), 0U);
  }

  const SRead idle{"", "", "", "", "READY", 3};
};

TEST_F(CInformation, keys_and_codes_of_an_incoming_call_read_as_documented_in_every_state) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const SRead busy{"0305551234", "8001000", "", "Voice", "INUSE", 4};
  EXPECT_EQ(Read(15), idle);
  Call call = Card().PlaceCall({.timeslot = 17, .calling = "0305551234", .called = "8001000"});
  ASSERT_TRUE(app->WaitEvent(15, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(Read(15), busy);
  app->zelk.Answer(15);
  ASSERT_TRUE(app->WaitEvent(15, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_EQ(Read(15), busy);
  call->Hangup();
  EXPECT_EQ(WaitCause(15), 16);
  EXPECT_EQ(Read(15), idle);
  Card().LoseLink(0);
  ASSERT_TRUE(app->WaitEvent(15, ZELK_EVENT_CHANNEL_STATE, kSoon));
  EXPECT_EQ(Read(15), (SRead{"", "", "", "", "DOWN", 2}));
}

TEST_F(CInformation, keys_and_codes_of_an_outgoing_call_read_as_documented_in_every_state) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const SRead busy{"8001000", "0405556789", "", "Voice", "INUSE", 4};
  cardsim::SAnswerPlan plan = cardsim::SAnswerPlan::NeverAnswer();
  plan.proceeding = false;
  plan.alertAfter.reset();
  Card().SetAnswerPlan(plan);
  EXPECT_TRUE(app->zelk.Dial(0, "0405556789", "8001000"));
  EXPECT_EQ(Read(0), busy);
  Call call = Card().WaitCall(kSoon);
  ASSERT_NE(call, nullptr);
  call->Alert();
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_ALERTING, kSoon));
  EXPECT_EQ(Read(0), busy);
  call->Answer();
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_EQ(Read(0), busy);
  app->zelk.Hangup(0);
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_EQ(Read(0), idle);
}

TEST_F(CInformation, a_closed_channel_on_a_trunk_that_is_up_reads_down_though_its_calls_go_on) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  app->zelk.CloseChannel(0);
  EXPECT_EQ(State(0), 2U);
  EXPECT_EQ(app->Text(0, ZELK_INFO_CHANNELSTATE), "DOWN");
  EXPECT_EQ(app->Text(0, ZELK_INFO_LINETYPE), "PRI");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "Voice");
  EXPECT_TRUE(app->zelk.OpenChannel(0));
  EXPECT_EQ(State(0), 2U);
  call->Hangup(31);
  EXPECT_EQ(WaitCause(0), 31);
  EXPECT_EQ(State(0), 2U);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  // A call that names the channel is still offered.
  app->Forget();
  call = Offer(1);
  EXPECT_EQ(State(0), 2U);
}

TEST_F(CInformation, set_channel_info_knows_one_code) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  EXPECT_EQ(app->zelk.SetChannelInfo(0, 1, 0), 1U);
  for (const int32_t code : {0, 2, -1, 5, 257, 0x7FFFFFFF}) {
    EXPECT_EQ(app->zelk.SetChannelInfo(0, code, 1), 0U) << code;
  }
  EXPECT_EQ(app->zelk.SetChannelInfoString(0, 1, "1"), 0U);
  EXPECT_EQ(app->zelk.SetChannelInfoString(-1, 0, nullptr), 0U);
  Call refused = Card().PlaceCall({.timeslot = 1});
  ASSERT_TRUE(refused->WaitEnded(kSoon));
  EXPECT_EQ(refused->Cause(), 44);
  // Any value but 0 allows.
  EXPECT_EQ(app->zelk.SetChannelInfo(0, 1, -7), 1U);
  Offer(1);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL}));
}

TEST_F(CIncomingCalls, every_redirect_reason_has_the_call_type_of_the_table) {
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

TEST_F(CIncomingCalls, a_caller_without_number_leaves_an_empty_text) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Card().PlaceCall({.timeslot = 1, .calling = "", .called = "8"});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "");
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "8");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CALLTYPE), "Voice");
}

TEST_F(CIncomingCalls, a_call_cleared_before_the_answer_gives_its_events_and_messages_in_order) {
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

TEST_F(CIncomingCalls, hanging_up_an_offered_call_clears_it_with_cause_16) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  EXPECT_TRUE(app->zelk.Hangup(0));
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 16);
  EXPECT_EQ(call->ClearedBy(), cardsim::EClearedBy::kLibrary);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_DISCONNECTED}));
}

TEST_F(CIncomingCalls, every_cause_of_the_far_end_reaches_the_application_with_its_name) {
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

TEST_F(CIncomingCalls, every_number_from_1_to_127_is_taken_as_the_cause_of_a_disconnect) {
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

TEST_F(CIncomingCalls, a_release_without_a_disconnect_ends_the_call_with_its_cause) {
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

TEST_F(CIncomingCalls, a_connect_acknowledge_that_names_parties_corrects_the_numbers_of_the_call) {
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

TEST_F(CIncomingCalls, digits_that_come_after_the_offer_change_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  ForgetAll();
  call->SendMessage(0x7B, {0x70, 0x03, 0x81, '7', '7'});  // INFORMATION
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "100");
  EXPECT_EQ(State(0), 4U);
}

TEST_F(CIncomingCalls, reject_of_an_offered_call_sends_cause_21_and_brings_no_event_of_its_own) {
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

TEST_F(CIncomingCalls, reject_and_answer_of_a_connected_call_send_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  EXPECT_TRUE(app->zelk.Reject(0));
  EXPECT_TRUE(app->zelk.Answer(0));
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_EQ(State(0), 4U);
  EXPECT_TRUE(app->CallEvents(0).empty());
}

TEST_F(CIncomingCalls, operations_on_an_idle_channel_send_nothing) {
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

TEST_F(CIncomingCalls, transfer_does_nothing_to_a_call) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  EXPECT_FALSE(app->zelk.Transfer(0));
  EXPECT_FALSE(app->zelk.Transfer(-1));
  EXPECT_EQ(SentBeforeNow(), Names{});
  EXPECT_EQ(State(0), 4U);
}

TEST_F(CIncomingCalls, operations_on_channels_that_do_not_exist_fail) {
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

class CUnnamedChannel : public CCallTest {};

TEST_F(CUnnamedChannel, the_first_trunk_offers_the_first_channel_that_is_open_idle_and_allows_calls) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  app->zelk.CloseChannel(0);
  app->zelk.SetChannelInfo(1, ZELK_SET_ALLOWINCOMING, 0);
  Call busy = ConnectIncoming(3);
  ForgetAll();
  Call call = Card().PlaceCall({.timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(app->WaitEvent(3, ZELK_EVENT_INCOMING_CALL, kSoon));
  ASSERT_TRUE(call->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_EQ(call->Timeslot(), 4);
  EXPECT_EQ(Card().Seen().Q931Names(0), (Names{"> SETUP", "< SETUP ACKNOWLEDGE", "< CALL PROCEEDING", "< ALERTING"}));
  const cardsim::SQ931Message acknowledge = FromLibrary("SETUP ACKNOWLEDGE")[0];
  EXPECT_EQ(acknowledge.Timeslot(), 4);
  // The far end is no ISDN.
  const cardsim::SInformationElement* progress = acknowledge.Find(0x1E);
  ASSERT_NE(progress, nullptr);
  EXPECT_EQ(progress->content, (cardsim::Bytes{0x81, 0x80 | 2}));
  app->zelk.Answer(3);
  ASSERT_TRUE(app->WaitEvent(3, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_EQ(FromLibrary("CONNECT")[0].Timeslot(), 4);
}

TEST_F(CUnnamedChannel, numbers_from_16_up_count_the_signalling_timeslot) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (int32_t channel = 0; channel < 14; ++channel) {
    app->zelk.CloseChannel(channel);
  }
  Call last = Card().PlaceCall({.timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(app->WaitEvent(14, ZELK_EVENT_INCOMING_CALL, kSoon));
  ASSERT_TRUE(last->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_EQ(FromLibrary("SETUP ACKNOWLEDGE")[0].Timeslot(), 15);
  ForgetAll();
  Call call = Card().PlaceCall({.timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(app->WaitEvent(15, ZELK_EVENT_INCOMING_CALL, kSoon));
  ASSERT_TRUE(call->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_EQ(FromLibrary("SETUP ACKNOWLEDGE")[0].Timeslot(), 17);
  EXPECT_EQ(call->Timeslot(), 17);
}

TEST_F(CUnnamedChannel, with_no_channel_free_the_call_is_cleared_with_cause_44_and_a_log_line) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));  // no channel is open
  Call call = Card().PlaceCall({.timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 44);
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 0: Trunk 0 - New Call aborted due to BCHANNEL unavailable\r\n"))
      << app->zelk.LogText();
  EXPECT_EQ(app->Count(ZELK_EVENT_INCOMING_CALL), 0U);
  EXPECT_TRUE(NetworkIsIdle());
}

TEST_F(CUnnamedChannel, the_second_trunk_names_number_32_and_the_call_is_offered_thirty_channels_further_on) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({3}));
  Call call = Card().PlaceCall({.trunk = 1, .timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(app->WaitEvent(60, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
  ASSERT_TRUE(call->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_EQ(FromLibrary("SETUP ACKNOWLEDGE", 1)[0].Timeslot(), 32);
  EXPECT_TRUE(app->CallEvents(30).empty());
  EXPECT_EQ(State(30), 3U);
  EXPECT_EQ(State(60), 4U);
  // The call is not one of that channel's trunk: it can be neither cleared nor answered from there.
  EXPECT_TRUE(app->zelk.Hangup(60));
  EXPECT_TRUE(app->zelk.WaitLog("  60 :Hangup()-> Failed in Q931 release()\r\n")) << app->zelk.LogText();
  EXPECT_EQ(State(60), 4U);
  EXPECT_TRUE(app->zelk.Answer(60));
  EXPECT_TRUE(app->zelk.WaitLog("  60 :Answer() -> Answer() failed in Q931 Connect().\r\n")) << app->zelk.LogText();
  EXPECT_EQ(State(60), 3U);
  EXPECT_TRUE(FromLibrary("CONNECT", 1).empty());
  call->Hangup();
  EXPECT_EQ(WaitCause(60), 16);
}

TEST_F(CUnnamedChannel, a_number_beyond_the_table_is_dropped) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}));
  Call call = Card().PlaceCall({.trunk = 1, .timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(WaitFromLibrary("SETUP ACKNOWLEDGE", 1, 1));
  EXPECT_EQ(SentBeforeNow(1), (Names{"SETUP ACKNOWLEDGE"}));
  EXPECT_EQ(app->Count(ZELK_EVENT_INCOMING_CALL), 1U);  // the one that proves the rest is silent
  // The call has no channel; its end is confirmed all the same.
  call->Hangup();
  EXPECT_TRUE(call->WaitEnded(kSoon));
  EXPECT_TRUE(NetworkIsIdle(1, kSoon));
}

TEST_F(CIncomingCalls, calls_for_the_signalling_and_the_framing_timeslot_get_no_reply) {
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
