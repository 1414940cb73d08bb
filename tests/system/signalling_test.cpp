// SPDX-License-Identifier: GPL-2.0-only
#include "call_fixture.h"

namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::ESimCallState;

// What the other side of a D-channel may do besides calling and clearing in turn.
class Signalling : public CCallTest {};

TEST_F(Signalling, both_sides_seizing_a_channel_leave_the_incoming_call) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Card().HoldFromLibrary(0, true);
  EXPECT_TRUE(app->zelk.Dial(0, "0405556789", "8001000"));
  ASSERT_TRUE(WaitFromLibrary("SETUP"));
  Call incoming = Card().PlaceCall({.timeslot = 1, .calling = "0305551234"});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "0305551234");
  Card().HoldFromLibrary(0, false);
  // The exchange refuses the library's call: the channel belongs to its own.
  Call outgoing = Card().WaitCall(kSoon);
  ASSERT_NE(outgoing, nullptr);
  ASSERT_TRUE(outgoing->WaitEnded(kSoon));
  EXPECT_EQ(outgoing->Cause(), 44);
  ASSERT_TRUE(incoming->WaitState(ESimCallState::kAlerting, kSoon));
  EXPECT_TRUE(app->zelk.Answer(0));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_INCOMING_CALL, ZELK_EVENT_CONNECTED}));
  incoming->Hangup();
  EXPECT_EQ(WaitCause(0), 16);
  EXPECT_EQ(State(0), 3U);
  EXPECT_TRUE(NetworkIsIdle());
}

// A restart of a channel hangs its call up and the network's release reports it.
TEST_F(Signalling, a_restart_of_a_channel_hangs_its_call_up) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  Call other = ConnectIncoming(2);
  ForgetAll();
  Card().RestartTimeslot(0, 1);
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  EXPECT_EQ(call->Cause(), 16);
  ASSERT_TRUE(WaitFromLibrary("RESTART ACKNOWLEDGE"));
  EXPECT_EQ(FromLibrary("DISCONNECT").size(), 1U);
  EXPECT_EQ(FromLibrary("DISCONNECT")[0].Cause(), 16);
  EXPECT_EQ(app->CallEvents(0), (Codes{ZELK_EVENT_DISCONNECTED}));
  EXPECT_TRUE(app->CallEvents(1).empty());
  EXPECT_EQ(State(1), 4U);
}

TEST_F(Signalling, a_restart_of_an_idle_channel_is_only_acknowledged) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Card().RestartTimeslot(0, 5);
  ASSERT_TRUE(WaitFromLibrary("RESTART ACKNOWLEDGE"));
  EXPECT_EQ(SentBeforeNow(), (Names{"RESTART ACKNOWLEDGE"}));
  EXPECT_TRUE(app->CallEvents(4).empty());
  ExpectWorking(5);
}

// A restart of the whole interface names no channel and touches no call.
TEST_F(Signalling, a_restart_of_the_whole_interface_touches_no_call) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  Card().RestartInterface(0);
  ASSERT_TRUE(WaitFromLibrary("RESTART ACKNOWLEDGE"));
  EXPECT_EQ(SentBeforeNow(), (Names{"RESTART ACKNOWLEDGE"}));
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(State(0), 4U);
  // The exchange clears the calls itself.
  call->Hangup(41);
  EXPECT_EQ(WaitCause(0), 41);
}

// Messages that no one knows and elements that are broken leave the call alone.
TEST_F(Signalling, unknown_messages_and_broken_elements_leave_the_call_alone) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  ForgetAll();
  call->SendMessage(0x7F);                                  // no such type
  call->SendMessage(0x00);                                  // escape to nationally defined types
  call->SendMessage(0x75);                                  // STATUS ENQUIRY
  call->SendMessage(0x6E, {0x27, 0x01, 0xF1});              // NOTIFY with a reserved description
  call->SendMessage(0x7B, {0x70, 0x7F, 0x81, '1'});         // INFORMATION, an element longer than the message
  call->SendMessage(0x7B, {0x2C, 0x00});                    // empty keypad
  call->SendMessage(0x62, {0x1C, 0x03, 0x91, 0xA1, 0xFF});  // FACILITY, broken component
  call->SendMessage(0x62, {0x1C, 0x00});
  call->SendMessage(0x01);                                              // ALERTING, in the wrong state
  call->SendMessage(0x03, {0x1E, 0x02, 0x84, 0x88});                    // PROGRESS, likewise
  call->SendMessage(0x7D, {0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x0A});  // STATUS, cause 101, active
  ASSERT_TRUE(WaitFromLibrary("STATUS"));
  SentBeforeNow();
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(State(0), 4U);
  for (const cardsim::SQ931Message& status : FromLibrary("STATUS")) {
    EXPECT_NE(status.Cause(), -1);
  }
  call->Hangup(16);
  EXPECT_EQ(WaitCause(0), 16);
  ASSERT_TRUE(call->WaitEnded(kSoon));
  ExpectWorking();
}

TEST_F(Signalling, messages_that_are_no_q931_are_survived) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const std::vector<Bytes> messages{
      {0x08},                          // ends after the discriminator
      {0x08, 0x02, 0x00},              // within the call reference
      {0x08, 0x0F, 0x01, 0x02, 0x03},  // a reference of 15 bytes
      {0x41, 0x02, 0x00, 0x01, 0x05},  // another protocol
      {0x08, 0x00, 0x05},              // the dummy reference
      {0x08, 0x02, 0x00, 0x00, 0x45},  // DISCONNECT of the global reference
      {0x08, 0x02, 0x00, 0x00, 0x46},  // RESTART without elements
      {0x08, 0x02, 0x00, 0x00, 0x46, 0x18, 0x03, 0xA9, 0x83, 0xFF, 0x79, 0x01, 0x80},  // RESTART of channel 127
      {0x08, 0x02, 0x7F, 0x01, 0x45, 0x08, 0x02, 0x80, 0x90},                          // DISCONNECT of an unknown call
      {0x08, 0x02, 0xFF, 0x02, 0x07},  // CONNECT for a call that the library never placed
  };
  for (const Bytes& message : messages) {
    Card().SendQ931(0, message);
  }
  ExpectWorking();
  for (int32_t channel = 1; channel < 30; ++channel) {
    EXPECT_TRUE(app->CallEvents(channel).empty()) << channel;
    EXPECT_EQ(State(channel), 3U);
  }
}

// Setups without their mandatory elements are refused and not offered.
TEST_F(Signalling, setups_without_mandatory_elements_are_refused) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  // Without bearer capability, and with an empty one.
  Card().SendQ931(0, {0x08, 0x02, 0x20, 0x01, 0x05, 0x18, 0x03, 0xA9, 0x83, 0x81, 0x70, 0x02, 0xA1, '8'});
  ASSERT_TRUE(WaitFromLibrary("RELEASE COMPLETE"));
  EXPECT_EQ(FromLibrary("RELEASE COMPLETE")[0].Cause(), 96);
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(State(0), 3U);
  ExpectWorking();
}

TEST_F(Signalling, a_call_that_the_exchange_forgets_is_ended_by_status) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call call = ConnectIncoming(1);
  // STATUS with call state null: whoever gets it has nothing left to clear (ITU-T Q.931, 5.8.11).
  call->SendMessage(0x7D, {0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon));
  EXPECT_EQ(State(0), 3U);
}

TEST_F(Signalling, numbers_are_taken_up_to_what_a_call_record_holds) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const std::string digits(200, '7');
  Call call = Card().PlaceCall({.timeslot = 1, .calling = "", .called = "8"});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  Bytes setup{0x08, 0x02, 0x20, 0x02, 0x05, 0x04, 0x03, 0x80, 0x90, 0xA3,
              0x18, 0x03, 0xA9, 0x83, 0x82, 0x6C, 202,  0x21, 0x81};
  setup.insert(setup.end(), digits.begin(), digits.end());
  setup.insert(setup.end(), {0x70, 0x02, 0xA1, '8'});
  Card().SendQ931(0, setup);
  ASSERT_TRUE(app->WaitEvent(1, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_INCOMING_CALL), 2U);
}

// A line that dies is noticed by layer 2 and its calls are lost.
TEST_F(Signalling, a_line_that_dies_is_noticed_by_layer_2) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  ConnectIncoming(1);
  app->Forget();
  Card().CutLine(0, true);
  // A frame that is never acknowledged shortens the wait to T200 times N200.
  app->zelk.Dial(1, "1", "2");
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE), 0);
  EXPECT_EQ(WaitParam(1, ZELK_EVENT_CHANNEL_STATE), 0);
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(State(0), 2U);
}

// A D-channel frame must not wait until the card's network acknowledges the frame before it, which may take it 40 to
// 200 ms: here the acknowledgement of the DISCONNECT and the RELEASE that answers it.
TEST_F(Signalling, an_answer_does_not_wait_for_the_cards_network) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  auto quickest = std::chrono::steady_clock::duration::max();
  for (size_t i = 0; i < 5; ++i) {
    ForgetAll();
    Call call = ConnectIncoming(1);
    call->Hangup();
    EXPECT_EQ(WaitCause(0), 16);
    ASSERT_TRUE(call->WaitEnded(kSoon));
    std::chrono::steady_clock::time_point disconnect;
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const std::string name = frame.Decode().message.name;
      if (name == "DISCONNECT") {
        disconnect = frame.time;
      } else if (name == "RELEASE") {
        quickest = std::min(quickest, frame.time - disconnect);
      }
    }
  }
  EXPECT_LT(quickest, std::chrono::milliseconds(20));
}

}  // namespace
