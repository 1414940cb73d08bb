// SPDX-License-Identifier: GPL-2.0-only
#include "call_fixture.h"

namespace {

using cardsim::Call;

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

class Information : public CCallTest {
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
    EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT),
              static_cast<uint32_t>(channel < 15 ? channel + 1 : channel + 2));
    for (const uint32_t code : {0U, 2U, 3U, 4U, 8U, 256U, 259U, 260U, 261U, 264U, 0xFFFFFFFFU}) {
      EXPECT_EQ(app->zelk.GetChannelInfo(channel, code), 0U) << code;
    }
    EXPECT_EQ(app->zelk.GetLastError(channel), 0U);
  }

  const SRead idle{"", "", "", "", "READY", 3};
};

TEST_F(Information, of_an_incoming_call_reads_as_documented_in_every_state) {
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
  Card().LoseLayer2(0);
  ASSERT_TRUE(app->WaitEvent(15, ZELK_EVENT_CHANNEL_STATE, kSoon));
  EXPECT_EQ(Read(15), (SRead{"", "", "", "", "DOWN", 2}));
}

TEST_F(Information, of_an_outgoing_call_reads_as_documented_in_every_state) {
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

// A closed channel on a trunk that is up reads down though its calls go on.
TEST_F(Information, of_a_closed_channel_reads_down_though_its_calls_go_on) {
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

TEST_F(Information, set_channel_info_knows_one_code) {
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

}  // namespace
