// SPDX-License-Identifier: GPL-2.0-only
#include "call_fixture.h"

// Calls that leave it to the library which channel they get.
namespace {

using cardsim::Call;
using cardsim::ESimCallState;
using cardsim::SCallRequest;

class UnnamedChannel : public CCallTest {};

// The first trunk offers the first channel that is open and idle and allows calls.
TEST_F(UnnamedChannel, trunk_1_offers_the_first_open_idle_channel) {
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

TEST_F(UnnamedChannel, numbers_from_16_up_count_the_signalling_timeslot) {
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

// With no channel free the call is cleared with cause 44 and a log line.
TEST_F(UnnamedChannel, with_none_free_clears_with_cause_44_and_a_log_line) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));  // no channel is open
  Call call = Card().PlaceCall({.timeslot = SCallRequest::kAnyChannel});
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 44);
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 0: Trunk 0 - New Call aborted due to BCHANNEL unavailable\r\n"))
      << app->zelk.LogText();
  EXPECT_EQ(app->Count(ZELK_EVENT_INCOMING_CALL), 0U);
  EXPECT_TRUE(NetworkIsIdle());
}

// The second trunk names number 32 and the call is offered thirty channels further on.
TEST_F(UnnamedChannel, trunk_2_names_number_32_and_offers_channel_60) {
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

TEST_F(UnnamedChannel, a_number_beyond_the_table_is_dropped) {
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

}  // namespace
