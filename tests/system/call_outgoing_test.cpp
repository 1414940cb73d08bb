// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <atomic>

#include "call_fixture.h"

namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::SAnswerPlan;
using cardsim::SQ931Message;

// Identifiers of ITU-T Q.931, table 4-3.
constexpr uint8_t kSendingComplete = 0xA1;
constexpr uint8_t kBearerCapability = 0x04;
constexpr uint8_t kCause = 0x08;
constexpr uint8_t kChannelIdentification = 0x18;
constexpr uint8_t kProgressIndicator = 0x1E;
constexpr uint8_t kCallingNumber = 0x6C;
constexpr uint8_t kCalledNumber = 0x70;

Bytes Content(const SQ931Message& message, uint8_t id) {
  const cardsim::SInformationElement* element = message.Find(id);
  return element == nullptr ? Bytes{} : element->content;
}

Bytes NumberBytes(const Bytes& head, const std::string& digits) {
  Bytes bytes = head;
  bytes.insert(bytes.end(), digits.begin(), digits.end());
  return bytes;
}

class OutgoingCalls : public CCallTest {
 protected:
  void HangUpAndWait(int32_t channel, size_t count = 1) {
    app->zelk.Hangup(channel);
    EXPECT_EQ(WaitCause(channel, count), 16);
  }

  // The SETUP of a call that is dialled and hung up again.
  SQ931Message SetupOf(int32_t channel, const char* number, const char* callingNumber) {
    ForgetAll();
    EXPECT_TRUE(app->zelk.Dial(channel, number, callingNumber));
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon));
    const std::vector<SQ931Message> setups = FromLibrary("SETUP");
    EXPECT_EQ(setups.size(), 1U);
    HangUpAndWait(channel);
    return setups.empty() ? SQ931Message() : setups[0];
  }
};

// A setup asks for speech over A-law on exactly the channel's timeslot.
TEST_F(OutgoingCalls, ask_for_speech_over_a_law_on_exactly_their_timeslot) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (const int32_t channel : {0, 14, 15, 29}) {
    const auto timeslot = static_cast<uint8_t>(channel < 15 ? channel + 1 : channel + 2);
    const SQ931Message setup = SetupOf(channel, "0405556789", "8001000");
    // CCITT coding, speech; circuit mode, 64 kbit/s; layer 1: G.711 A-law.
    EXPECT_EQ(Content(setup, kBearerCapability), (Bytes{0x80, 0x90, 0xA3}));
    // Primary rate, exclusive, not the D-channel; CCITT coding, a number, B-channels; the number.
    EXPECT_EQ(Content(setup, kChannelIdentification), (Bytes{0xA9, 0x83, static_cast<uint8_t>(0x80 | timeslot)}));
    EXPECT_FALSE(setup.fromDestination);
    EXPECT_NE(setup.Find(kSendingComplete), nullptr);
  }
}

// Both numbers carry type and plan and the calling one is shown and screened.
TEST_F(OutgoingCalls, numbers_carry_type_and_plan_the_calling_one_is_screened) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const SQ931Message setup = SetupOf(0, "0405556789", "8001000");
  // 33 by default: national number, ISDN plan.
  EXPECT_EQ(Content(setup, kCalledNumber), NumberBytes({0x80 | 0x21}, "0405556789"));
  // Presentation allowed; user provided, verified and passed.
  EXPECT_EQ(Content(setup, kCallingNumber), NumberBytes({0x21, 0x80 | 0x01}, "8001000"));
}

TEST_F(OutgoingCalls, number_type_of_the_trunks_section_goes_for_both_numbers) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[General]\nNumberType=33\n[100001-1]\nNumberType=65\n"));
  const SQ931Message setup = SetupOf(0, "5556789", "1000");
  EXPECT_EQ(Content(setup, kCalledNumber), NumberBytes({0x80 | 0x41}, "5556789"));
  EXPECT_EQ(Content(setup, kCallingNumber), NumberBytes({0x41, 0x81}, "1000"));
}

// A null calling number repeats the last one and starts empty.
TEST_F(OutgoingCalls, a_null_calling_number_repeats_the_last_one) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  SQ931Message setup = SetupOf(0, "1", nullptr);
  EXPECT_EQ(Content(setup, kCallingNumber), (Bytes{0x21, 0x81}));
  setup = SetupOf(0, "2", "777");
  EXPECT_EQ(setup.Number(kCallingNumber), "777");
  setup = SetupOf(0, "3", nullptr);
  EXPECT_EQ(setup.Number(kCallingNumber), "777");
  // Each channel has its own.
  setup = SetupOf(1, "4", nullptr);
  EXPECT_EQ(setup.Number(kCallingNumber), "");
}

TEST_F(OutgoingCalls, numbers_are_cut_to_31_characters_but_read_whole) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const std::string longNumber = "0123456789012345678901234567890123456789";
  Card().SetAnswerPlan(SAnswerPlan::NeverAnswer());
  EXPECT_TRUE(app->zelk.Dial(0, longNumber.c_str(), longNumber.c_str()));
  ASSERT_TRUE(WaitFromLibrary("SETUP"));
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), longNumber);
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), longNumber);
  const SQ931Message setup = FromLibrary("SETUP")[0];
  EXPECT_EQ(setup.Number(kCalledNumber), longNumber.substr(0, 31));
  EXPECT_EQ(setup.Number(kCallingNumber), longNumber.substr(0, 31));
}

// An answered call gives one CONNECT ACKNOWLEDGE and its events in order on one thread.
TEST_F(OutgoingCalls, answered_give_one_acknowledge_and_events_on_one_thread) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  SAnswerPlan plan;
  plan.progressAfter = std::chrono::milliseconds(0);
  plan.progressCause = 31;
  plan.alertAfter = std::chrono::milliseconds(30);
  plan.answerAfter = std::chrono::milliseconds(60);
  Card().SetAnswerPlan(plan);
  Call call = ConnectOutgoing(0);
  call->Hangup(16);
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_PROGRESS, ZELK_EVENT_ALERTING,
                                       ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PROGRESS), 31);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_ALERTING), 0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CONNECTED), 0);
  for (const support::SAppEvent& event : app->Events(0)) {
    EXPECT_EQ(event.thread, app->Events(0)[0].thread);
    EXPECT_NE(event.thread, std::this_thread::get_id());
  }
  EXPECT_EQ(Card().Seen().Q931Names(0),
            (Names{"< SETUP", "> CALL PROCEEDING", "> PROGRESS", "> ALERTING", "> CONNECT", "< CONNECT ACKNOWLEDGE",
                   "> DISCONNECT", "< RELEASE", "> RELEASE COMPLETE"}));
}

TEST_F(OutgoingCalls, progress_carries_the_cause_of_its_message) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = DialRinging(0);
  size_t count = 1;
  call->Progress();
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PROGRESS), -1);
  for (const int cause : {17, 1, 127, 31}) {
    call->Progress(cause);
    EXPECT_EQ(WaitParam(0, ZELK_EVENT_PROGRESS, ++count), cause);
  }
  call->Progress();
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PROGRESS, ++count), -1);
  EXPECT_EQ(State(0), 4U);
  HangUpAndWait(0);
}

TEST_F(OutgoingCalls, refused_bring_their_cause_whether_proceeding_or_not) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  for (const bool proceeding : {true, false}) {
    for (const int cause : {1,  3,  6,  7,  16, 17, 18, 21, 22, 26, 27, 28, 34,  38,  41,
                            42, 44, 47, 50, 57, 58, 63, 65, 79, 81, 88, 95, 102, 111, 127}) {
      ForgetAll();
      SAnswerPlan plan = SAnswerPlan::Refuse(cause);
      plan.proceeding = proceeding;
      Card().SetAnswerPlan(plan);
      EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
      EXPECT_EQ(WaitCause(0), cause) << proceeding;
      const Codes events = app->CallEvents(0);
      EXPECT_EQ(events.back(), static_cast<uint32_t>(ZELK_EVENT_DISCONNECTED));
      EXPECT_EQ(std::count(events.begin(), events.end(), ZELK_EVENT_DISCONNECTED), 1);
      EXPECT_EQ(std::count(events.begin(), events.end(), ZELK_EVENT_CONNECTED), 0);
      EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "");
      EXPECT_EQ(State(0), 3U);
      ASSERT_TRUE(NetworkIsIdle()) << cause;
    }
  }
}

TEST_F(OutgoingCalls, an_unanswered_call_is_hung_up_by_the_application) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = DialRinging(0);
  EXPECT_TRUE(app->zelk.Hangup(0));
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_DISCONNECTED}));
  EXPECT_TRUE(FromLibrary("CONNECT ACKNOWLEDGE").empty());
  // Normal clearing, told by the user side.
  EXPECT_EQ(Content(FromLibrary("DISCONNECT").at(0), kCause).at(1), 0x80 | 16);
}

// The channel is free for the next call when DISCONNECTED arrives.
TEST_F(OutgoingCalls, leave_the_channel_free_when_disconnected_arrives) {
  std::atomic<int> redials{0};
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Card().SetAnswerPlan(SAnswerPlan::Refuse(17));
  app->onEvent = [&](const support::SAppEvent& event) {
    if (event.code == ZELK_EVENT_DISCONNECTED && redials < 10) {
      redials += app->zelk.Dial(event.channel, "1", nullptr) ? 1 : 100;
    }
  };
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon, 11));
  EXPECT_EQ(redials, 10);
  EXPECT_TRUE(NetworkIsIdle());
}

TEST_F(OutgoingCalls, reject_of_a_dialled_call_clears_it_with_cause_21) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = DialRinging(0);
  EXPECT_FALSE(app->zelk.Reject(0));
  EXPECT_EQ(State(0), 3U);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 21);
}

// Alerting before the answer is an event even with hangup on alerting.
TEST_F(OutgoingCalls, alerting_is_an_event_even_with_hangup_on_alerting) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[General]\nHangupOnAlerting=1\n"));
  Call call = DialRinging(0);
  call->Answer();
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_CONNECTED}));
  HangUpAndWait(0);
}

TEST_F(OutgoingCalls, a_second_dial_is_refused_in_every_state_of_a_call) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call offered = Offer(2);
  EXPECT_FALSE(app->zelk.Dial(1, "333", "444"));
  EXPECT_EQ(app->Text(1, ZELK_INFO_DLI), offered->Called());
  app->zelk.Answer(1);
  ASSERT_TRUE(app->WaitEvent(1, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_FALSE(app->zelk.Dial(1, "333", "444"));
  Call call = DialRinging(0);
  EXPECT_FALSE(app->zelk.Dial(0, "333", "444"));
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "0405556789");
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "8001000");
  call->Answer();
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_FALSE(app->zelk.Dial(0, "333", nullptr));
  EXPECT_EQ(FromLibrary("SETUP").size(), 1U);
  // The calling number of a refused dial is kept for the next one.
  HangUpAndWait(0);
  ForgetAll();
  EXPECT_TRUE(app->zelk.Dial(0, "1", nullptr));
  ASSERT_TRUE(WaitFromLibrary("SETUP"));
  EXPECT_EQ(FromLibrary("SETUP")[0].Number(kCallingNumber), "444");
}

// Without its card a trunk has no controller.
TEST_F(OutgoingCalls, on_a_card_not_reopened_fail_with_a_line_until_it_is) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  ConnectIncoming(1);
  Card().SetListening(false);
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has failed")) << app->zelk.LogText();
  for (const int32_t channel : {0, 5}) {
    EXPECT_FALSE(app->zelk.Dial(channel, "0405556789", "8001000"));
    EXPECT_EQ(app->zelk.GetLastError(channel), 0U);
    EXPECT_EQ(app->Text(channel, ZELK_INFO_DLI), "0405556789");
    EXPECT_TRUE(app->zelk.Hangup(channel));
    EXPECT_TRUE(app->zelk.Answer(channel));
    EXPECT_EQ(app->Text(channel, ZELK_INFO_DLI), "");
    EXPECT_FALSE(app->zelk.Reject(channel));
  }
  EXPECT_TRUE(app->zelk.WaitLog("   0 :Dial() -> new call failed\r\n")) << app->zelk.LogText();
  EXPECT_TRUE(app->zelk.WaitLog("   5 :Dial() -> new call failed\r\n")) << app->zelk.LogText();
  EXPECT_EQ(State(0), 2U);  // its call was lost with the card
  EXPECT_EQ(State(5), 3U);
  Card().SetListening(true);
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded")) << app->zelk.LogText();
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  app->Forget();
  ConnectOutgoing(5);
}

// The reply to a call names its channel and the answer says that the far end is no ISDN.
TEST_F(OutgoingCalls, replies_name_the_channel_and_the_answer_says_no_isdn) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(17);
  const Bytes channel17{0xA9, 0x83, 0x80 | 17};
  for (const char* name : {"CALL PROCEEDING", "ALERTING", "CONNECT"}) {
    const std::vector<SQ931Message> sent = FromLibrary(name);
    ASSERT_EQ(sent.size(), 1U) << name;
    EXPECT_TRUE(sent[0].fromDestination);
    if (sent[0].Find(kChannelIdentification) != nullptr) {
      EXPECT_EQ(Content(sent[0], kChannelIdentification), channel17) << name;
    }
  }
  EXPECT_EQ(Content(FromLibrary("CALL PROCEEDING")[0], kChannelIdentification), channel17);
  EXPECT_EQ(Content(FromLibrary("CONNECT")[0], kChannelIdentification), channel17);
  // Nothing is heard in the band before the answer.
  EXPECT_EQ(FromLibrary("CALL PROCEEDING")[0].Find(kProgressIndicator), nullptr);
  EXPECT_EQ(FromLibrary("ALERTING")[0].Find(kProgressIndicator), nullptr);
  // Destination address is non-ISDN.
  const Bytes progress = Content(FromLibrary("CONNECT")[0], kProgressIndicator);
  ASSERT_EQ(progress.size(), 2U);
  EXPECT_EQ(progress[1], 0x80 | 2);
}

// Every clearing of the library tells coding, location and cause.
TEST_F(OutgoingCalls, clearings_tell_coding_location_and_cause) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  // CCITT coding, private network serving the local user.
  constexpr uint8_t kHead = 0x80 | 0x01;
  ConnectIncoming(1);
  app->zelk.Hangup(0);
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_EQ(Content(FromLibrary("DISCONNECT").at(0), kCause), (Bytes{kHead, 0x80 | 16}));
  Offer(2);
  app->zelk.Reject(1);
  ASSERT_TRUE(WaitFromLibrary("DISCONNECT", 2));
  EXPECT_EQ(Content(FromLibrary("DISCONNECT").at(1), kCause), (Bytes{kHead, 0x80 | 21}));
  // What the far end clears is released with cause 16, whatever the cause was.
  Call call = ConnectIncoming(4);
  call->Hangup(31);
  EXPECT_EQ(WaitCause(3), 31);
  ASSERT_TRUE(WaitFromLibrary("RELEASE"));
  EXPECT_EQ(Content(FromLibrary("RELEASE").at(0), kCause), (Bytes{kHead, 0x80 | 16}));
  app->zelk.SetChannelInfo(2, ZELK_SET_ALLOWINCOMING, 0);
  Card().PlaceCall({.timeslot = 3});
  ASSERT_TRUE(support::Eventually([&] {
    for (const SQ931Message& message : FromLibrary("RELEASE COMPLETE")) {
      if (message.Cause() == 44) {
        EXPECT_EQ(Content(message, kCause), (Bytes{kHead, 0x80 | 44}));
        return true;
      }
    }
    return false;
  }));
}

}  // namespace
