// SPDX-License-Identifier: GPL-2.0-only
#include <regex>

#include "trace_fixture.h"

// The ladder of every kind of call, to the letter but for its times.
namespace {

using cardsim::Call;
using cardsim::ESimCallState;
using cardsim::SAnswerPlan;

class Ladder : public CCaptureTest {
 protected:
  // Dials with this plan, each on a channel of its own; the call that the exchange has.
  Call Dial(const SAnswerPlan& plan, const std::string& number) {
    Card().SetAnswerPlan(plan);
    EXPECT_TRUE(app->zelk.Dial(channel++, number.c_str(), "8001000"));
    Call call = Card().WaitCall(kSoon);
    EXPECT_NE(call, nullptr);
    return call;
  }
  void End(const Call& call) {
    SCOPED_TRACE(call->Called() + " at " + std::to_string(call->Timeslot()));
    EXPECT_TRUE(call->WaitEnded(kSoon));
    EXPECT_TRUE(NetworkIsIdle(0, kSoon));
  }

  // ---- the kinds, in the order of the file ----

  void Incoming() {
    Call call = ConnectIncoming(1);
    call->Hangup(16);
    End(call);
    call = ConnectIncoming(2);
    app->zelk.Hangup(1);
    End(call);
    call = Offer(3);
    app->zelk.Reject(2);
    End(call);
    call = Card().PlaceCall({.timeslot = 4, .redirecting = "5557"});
    EXPECT_TRUE(app->WaitEvent(3, ZELK_EVENT_INCOMING_CALL, kSoon));
    EXPECT_TRUE(call->WaitState(ESimCallState::kAlerting, kSoon));
    call->Hangup(16);  // the caller gives up
    End(call);
  }
  void Outgoing() {
    channel = 5;
    Call call = Dial(SAnswerPlan(), "5551");
    EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
    app->zelk.Hangup(channel - 1);
    End(call);
    End(Dial(SAnswerPlan::Refuse(17), "5552"));
    SAnswerPlan unallocated = SAnswerPlan::Refuse(1);
    unallocated.proceeding = false;
    End(Dial(unallocated, "5553"));
    call = Dial(SAnswerPlan::NeverAnswer(), "5554");
    EXPECT_TRUE(app->WaitEvent(channel - 1, ZELK_EVENT_ALERTING, kSoon));
    call->Hangup(19);  // nobody has answered
    End(call);
    SAnswerPlan abrupt;
    abrupt.farEnd.clearing = cardsim::EClearing::kReleaseComplete;
    call = Dial(abrupt, "5556");
    EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
    app->zelk.Hangup(channel - 1);
    End(call);
    SAnswerPlan inBand = SAnswerPlan::Refuse(34);
    inBand.progressAfter = std::chrono::milliseconds(0);
    inBand.progressCause = 34;
    inBand.refuseAfter = std::chrono::milliseconds(100);
    End(Dial(inBand, "5555"));
  }
  void Restarted() {
    const Call call = ConnectIncoming(21);
    Card().RestartTimeslot(0, 21);
    End(call);
  }

  // The exchange's SETUP for a channel on which the library's own is under way.
  void Crossing() {
    Card().HoldFromLibrary(0, true);
    EXPECT_TRUE(app->zelk.Dial(0, "5551", "8001000"));
    EXPECT_TRUE(WaitFromLibrary("SETUP"));
    const Call offered = Card().PlaceCall({.timeslot = 1});
    EXPECT_TRUE(WaitFromLibrary("ALERTING"));
    Card().HoldFromLibrary(0, false);
    const Call dialled = Card().WaitCall(kSoon);
    ASSERT_NE(dialled, nullptr);
    EXPECT_TRUE(dialled->WaitEnded(kSoon));
    EXPECT_TRUE(offered->WaitState(ESimCallState::kAlerting, kSoon));
    offered->Hangup(16);
    End(offered);
  }
  // The rest of the number comes digit by digit.
  void Overlapping() {
    Card().ClearSeen();
    const Call call = Card().PlaceCall({.timeslot = 2, .called = "8"});
    EXPECT_TRUE(WaitFromLibrary("ALERTING"));  // on its way when the application hears of the call
    for (const uint8_t digit : {uint8_t{'0'}, uint8_t{'1'}}) {
      call->SendMessage(0x7B, {0x70, 2, 0x81, digit});
    }
    call->SendMessage(0x75, {});  // STATUS ENQUIRY: its answer says that the digits have come
    EXPECT_TRUE(WaitFromLibrary("STATUS"));
    app->zelk.Answer(1);
    EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
    call->Hangup(16);
    End(call);
  }
  // Layer 2 goes down under a call and comes up again: the library says where it stands.
  void LinkLost() {
    const Call call = ConnectIncoming(3);
    Card().LoseLayer2(0);
    EXPECT_TRUE(app->WaitEvent(2, ZELK_EVENT_CHANNEL_STATE, kSoon));
    Card().ClearSeen();
    MendLine(0);
    EXPECT_TRUE(WaitFromLibrary("STATUS"));
    call->Hangup(16);
    End(call);
  }

  // All calls of the capture, without times.
  std::string Ladders(size_t count) const {
    std::string text = "# SPDX-License-Identifier: GPL-2.0-only\n\n";
    for (size_t call = 1; call <= count; ++call) {
      text += TraceOf("ladder " + Capture() + " --call " + std::to_string(call)) + "\n";
    }
    text = std::regex_replace(text, std::regex(", 20[0-9]{2}-[^\n]*Z"), "");
    return std::regex_replace(text, std::regex("[ 0-9]+\\.[0-9]{6} s  "), "");
  }

  static size_t CountOf(const std::string& text, const std::string& word) {
    size_t count = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
      ++count;
    }
    return count;
  }

  // A ladder's picture is XML without scripts, and has these words.
  void ExpectPicture(const std::string& calls, const Names& words) const {
    const std::string picture = Path("ladder.svg");
    TraceOf("ladder " + Capture() + " " + calls + " --svg " + picture);
    Run("xmllint --noout " + picture);
    const std::string text = TextOf(picture);
    EXPECT_NE(text.find("<svg"), std::string::npos);
    EXPECT_EQ(text.find("<script"), std::string::npos);
    for (const std::string& word : words) {
      EXPECT_NE(text.find(word), std::string::npos) << word;
    }
  }

  int32_t channel = 0;
};

TEST_F(Ladder, of_every_kind_of_call_is_as_it_was_written_down) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({1}));
  Incoming();
  Restarted();
  Outgoing();
  FinishCapture(10);  // one is restarted
  EXPECT_EQ(Ladders(11), TextOf(ZELK_LADDERS "/ladders.txt"));
}

TEST_F(Ladder, of_calls_that_cross_overlap_or_lose_their_link) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({1}));
  Crossing();
  Overlapping();
  LinkLost();
  FinishCapture(4);
  // Whether the exchange says so too is its own affair.
  const std::string ladders = std::regex_replace(Ladders(4), std::regex("\\|-+ STATUS -+>\\|[^\n]*\n"), "");
  EXPECT_EQ(ladders, TextOf(ZELK_LADDERS "/ladders-crossed.txt"));
  const std::string ladder = "ladder " + Capture();
  const std::string both = TraceOf(ladder + " --call 3 --call 1");
  EXPECT_EQ(both, TraceOf(ladder + " --call 1") + "\n" + TraceOf(ladder + " --call 3"));
  EXPECT_EQ(TraceOf(ladder + " --call 1 --call 9 --call 3", 1), both);
  EXPECT_EQ(TraceOf(ladder + " --trunk 100001-2", 1), "");
  ExpectPicture("--call 1", {"SETUP", "RELEASE COMPLETE", "REQUESTED_CHAN_UNAVAIL", "8001000"});
  ExpectPicture("--trunk 100001-1", {"INFORMATION", "STATUS", "5551000", "801"});
}

TEST_F(Ladder, of_two_trunks_has_the_calls_that_are_asked_for) {
  ASSERT_NO_FATAL_FAILURE(StartCaptured({2}));
  const Call first = ConnectIncoming(3, 1);
  const Call second = ConnectIncoming(4, 1);  // while the first one goes on
  const Call other = ConnectIncoming(3, 0);
  for (const Call& call : {second, first, other}) {
    call->Hangup(16);
    EXPECT_TRUE(call->WaitEnded(kSoon));
  }
  FinishCapture(3);
  const std::string ladder = "ladder " + Capture();
  // Each has all frames of its trunk from its begin to its end, those of the other call too.
  const std::string layer2 = TraceOf(ladder + " --layer2 --call 2 --call 1");
  EXPECT_EQ(layer2, TraceOf(ladder + " --layer2 --call 1") + "\n" + TraceOf(ladder + " --layer2 --call 2"));
  EXPECT_EQ(layer2, TraceOf(ladder + " --layer2 --trunk 100001-2"));
  EXPECT_EQ(CountOf(layer2, "- SETUP -"), 3U);  // the second one's stands in the first one's ladder too
  EXPECT_EQ(CountOf(layer2, "- RELEASE COMPLETE -"), 3U);
  EXPECT_GT(CountOf(layer2, "- RR"), 0U) << layer2;
}

TEST_F(Ladder, of_a_library_that_is_the_network_has_its_answer) {
  ASSERT_NO_FATAL_FAILURE(StartCapture());
  ASSERT_NO_FATAL_FAILURE(StartAsNetwork(1));
  const Call call = ConnectIncoming(3);
  call->Hangup(31);
  End(call);
  FinishCapture(1);
  EXPECT_EQ(Ladders(1), TextOf(ZELK_LADDERS "/ladder-as-network.txt"));
}

}  // namespace
