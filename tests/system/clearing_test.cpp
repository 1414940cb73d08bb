// SPDX-License-Identifier: GPL-2.0-only
#include <map>

#include "call_fixture.h"

// Clearings that cross, that are answered in other ways, and that nobody answers.
namespace {

using cardsim::Call;
using cardsim::ESimCallState;
using cardsim::SAnswerPlan;

constexpr const char* kFreedSoon = "[General]\nClearedCallTimeout=1\n";
constexpr const char* kNeverFreed = "[General]\nClearedCallTimeout=0\n";

class Clearing : public CCallTest {
 protected:
  // Channel 0, after a clearing that was only acknowledged.
  void ExpectFreedByTheTimeout(int32_t cause) {
    EXPECT_EQ(WaitCause(0), cause);
    EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_DISCONNECTED}));
    EXPECT_EQ(State(0), 3U);
    EXPECT_TRUE(NetworkIsIdle());
    Card().SetAnswerPlan(SAnswerPlan());
    ConnectOutgoing(0);
  }
};

TEST_F(Clearing, both_sides_clearing_at_once_end_in_one_disconnected) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  Card().HoldFromLibrary(0, true);
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(WaitFromLibrary("DISCONNECT"));
  call->Hangup(31);  // the exchange has not seen the library's DISCONNECT
  ASSERT_TRUE(WaitFromLibrary("RELEASE"));
  Card().HoldFromLibrary(0, false);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  // The cause is that of the exchange's RELEASE, which answers the library's DISCONNECT.
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_TRUE(NetworkIsIdle());
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_DISCONNECTED}));
  EXPECT_EQ(State(0), 3U);
  EXPECT_EQ(Card().Seen().Q931Names(0), (Names{"< DISCONNECT", "> DISCONNECT", "< RELEASE", "> RELEASE"}));
  ExpectWorking();
}

// libpri reports a clearing that is answered by RELEASE COMPLETE at once as an acknowledgement alone.
TEST_F(Clearing, a_hang_up_that_crosses_a_refusal_is_reported_late) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, kFreedSoon));
  SAnswerPlan plan = SAnswerPlan::NeverAnswer();
  plan.proceeding = false;
  plan.alertAfter.reset();
  Card().SetAnswerPlan(plan);
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  Call call = Card().WaitCall(kSoon);
  ASSERT_NE(call, nullptr);
  Card().HoldFromLibrary(0, true);
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(WaitFromLibrary("DISCONNECT"));
  call->Hangup(44);
  ASSERT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kToLibrary, "RELEASE COMPLETE", kSoon));
  Card().HoldFromLibrary(0, false);
  ExpectFreedByTheTimeout(44);
}

class AnswersToAClearing : public Clearing, public testing::WithParamInterface<cardsim::EClearing> {};

// A disconnect answered without release is reported late.
TEST_P(AnswersToAClearing, that_are_no_release_are_reported_late) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, kFreedSoon));
  Call call = Card().PlaceCall({.timeslot = 1, .farEnd = {.clearing = GetParam()}});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_TRUE(app->zelk.Answer(0));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  app->Forget();
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(call->WaitEnded(kSoon));
  const std::map<cardsim::EClearing, int32_t> causes{{cardsim::EClearing::kReleaseComplete, 16},
                                                     {cardsim::EClearing::kUnknownCall, 81},
                                                     {cardsim::EClearing::kStatusNull, 101}};
  ExpectFreedByTheTimeout(causes.at(GetParam()));
}

std::string NameOf(const testing::TestParamInfo<cardsim::EClearing>& answer) {
  constexpr const char* kNames[] = {"release", "release_complete", "unknown_call", "status_null"};
  return kNames[static_cast<size_t>(answer.param)];
}

INSTANTIATE_TEST_SUITE_P(answers, AnswersToAClearing,
                         testing::Values(cardsim::EClearing::kReleaseComplete, cardsim::EClearing::kUnknownCall,
                                         cardsim::EClearing::kStatusNull),
                         NameOf);

TEST_F(Clearing, without_a_timeout_such_a_channel_waits_for_its_trunk) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, kNeverFreed));
  Call call = Card().PlaceCall({.timeslot = 1, .farEnd = {.clearing = cardsim::EClearing::kReleaseComplete}});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(call->WaitEnded(kSoon));
  app->Forget();
  // What the library had to say of the clearing came before it told of this later call.
  Call later = Card().PlaceCall({.timeslot = 2});
  ASSERT_TRUE(app->WaitEvent(1, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(State(0), 4U);
  EXPECT_FALSE(app->zelk.Dial(0, "3", "4"));
  Card().LoseLayer2(0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE), 0);
  MendLine(0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE, 2), 1);
  EXPECT_TRUE(app->CallEvents(0).empty());
  later->Hangup();
  Card().SetAnswerPlan(SAnswerPlan());
  ConnectOutgoing(0);
}

// Before the timeout Reject frees a channel whose call was not connected ...
TEST_F(Clearing, reject_frees_a_channel_whose_call_was_cleared_unheard) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, kNeverFreed));
  Call call = DialRinging(0);
  app->Forget();
  Card().HoldFromLibrary(0, true);
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(WaitFromLibrary("DISCONNECT"));
  call->SendMessage(0x5A, {0x08, 0x02, 0x81, 0xE5});
  // A frame after it has been read: so has this one.
  Call other = Card().PlaceCall({.timeslot = 2});
  ASSERT_TRUE(app->WaitEvent(1, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(State(0), 4U);
  EXPECT_FALSE(app->zelk.Reject(0));
  EXPECT_EQ(State(0), 3U);
  EXPECT_TRUE(app->CallEvents(0).empty());
  // libpri was not asked to clear what it has no longer, and the other channel's call, whatever its record, goes on.
  app->zelk.Answer(0);
  ASSERT_TRUE(app->zelk.WaitLog("Answer() -> Answer() failed")) << app->zelk.LogText();
  EXPECT_EQ(app->zelk.LogText().find("Debug Message"), std::string::npos) << app->zelk.LogText();
  Card().HoldFromLibrary(0, false);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(app->CallEvents(1), (Codes{ZELK_EVENT_INCOMING_CALL}));
  EXPECT_TRUE(app->zelk.Answer(1));
  ASSERT_TRUE(app->WaitEvent(1, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_FALSE(other->Reached(ESimCallState::kDisconnecting));
  Card().SetAnswerPlan(SAnswerPlan());
  ConnectOutgoing(0);
}

// ... and a call that the network puts on the channel is one like any other.
TEST_F(Clearing, a_call_on_a_channel_left_connected_is_like_any_other) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, kNeverFreed));
  Call call = Card().PlaceCall({.timeslot = 1, .farEnd = {.clearing = cardsim::EClearing::kReleaseComplete}});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_TRUE(app->zelk.Answer(0));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(call->WaitEnded(kSoon));
  ForgetAll();
  call = ConnectIncoming(1);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_CONNECTED}));
  call->Hangup();
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  ExpectWorking();
}

TEST_F(Clearing, a_second_hang_up_does_not_keep_the_exchange_waiting) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  Card().HoldFromLibrary(0, true);
  EXPECT_TRUE(app->zelk.Hangup(0));
  EXPECT_TRUE(app->zelk.Hangup(0));
  Card().HoldFromLibrary(0, false);
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(WaitFromLibrary("RELEASE COMPLETE"));
  EXPECT_EQ(Card().Seen().Q931Names(0), (Names{"< DISCONNECT", "> RELEASE", "< RELEASE COMPLETE"}));
  ASSERT_TRUE(call->WaitEnded(kSoon));
}

TEST_F(Clearing, a_reject_that_crosses_a_clearing_leaves_both_sides_idle) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = Offer(1);
  ForgetAll();
  Card().HoldFromLibrary(0, true);
  EXPECT_FALSE(app->zelk.Reject(0));
  ASSERT_TRUE(WaitFromLibrary("DISCONNECT"));
  call->Hangup(31);  // the exchange has not seen the library's DISCONNECT
  ASSERT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kToLibrary, "DISCONNECT", kSoon));
  Card().HoldFromLibrary(0, false);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_TRUE(NetworkIsIdle(0, kSoon));
  EXPECT_EQ(WaitCause(0), 21);
  EXPECT_EQ(State(0), 3U);
  ExpectWorking();
}

TEST_F(Clearing, the_confirmation_of_a_clearing_brings_no_second_event) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  call->Hangup(31);
  EXPECT_EQ(WaitCause(0), 31);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  SentBeforeNow();
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_CONNECTED, ZELK_EVENT_DISCONNECTED}));
}

}  // namespace
