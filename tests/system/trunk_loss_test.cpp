// SPDX-License-Identifier: GPL-2.0-only
#include "call_fixture.h"

namespace {

using cardsim::Call;
using cardsim::ESimCallState;

// Calls in each state, and what is left of them when their trunk or card goes.
class TrunkLoss : public CCallTest {
 protected:
  static constexpr int32_t kIdle = 0;
  static constexpr int32_t kOffered = 1;
  static constexpr int32_t kConnectedIn = 2;
  static constexpr int32_t kDialling = 3;
  static constexpr int32_t kConnectedOut = 4;
  static constexpr int32_t kClearing = 5;
  static constexpr int32_t kClosed = 6;

  void MakeCalls() {
    Offer(kOffered + 1);
    ConnectIncoming(kConnectedIn + 1);
    ConnectOutgoing(kConnectedOut);
    DialRinging(kDialling);
    ConnectIncoming(kClearing + 1);
    // The far end's answers no longer come: this clearing stays half done.
    Card().HoldFromLibrary(0, true);
    app->zelk.Hangup(kClearing);
    ASSERT_TRUE(WaitFromLibrary("DISCONNECT"));
    app->zelk.CloseChannel(kClosed);
    app->Forget();
  }

  Codes AllCodes(int32_t channel) {
    Codes codes;
    for (const support::SAppEvent& event : app->Events(channel)) {
      codes.push_back(event.code);
    }
    return codes;
  }

  void ExpectForgotten(int32_t channel) {
    EXPECT_EQ(app->Text(channel, ZELK_INFO_CHANNELSTATE), "DOWN") << channel;
    for (const uint32_t key : {ZELK_INFO_CLI, ZELK_INFO_DLI, ZELK_INFO_RLI, ZELK_INFO_CALLTYPE}) {
      EXPECT_EQ(app->Text(channel, key), "") << channel;
    }
  }
};

TEST_F(TrunkLoss, takes_calls_in_every_state_with_one_channel_state_event) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}));
  ASSERT_NO_FATAL_FAILURE(MakeCalls());
  Card().LoseLayer2(0);
  for (int32_t channel = 0; channel < 30; ++channel) {
    if (channel != kClosed) {
      EXPECT_EQ(WaitParam(channel, ZELK_EVENT_CHANNEL_STATE), 0);
    }
    ExpectForgotten(channel);
  }
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 0: Trunk 0 - DCHANNEL DOWN\r\n")) << app->zelk.LogText();
  // A closed channel read DOWN before and gets no event; the other trunk none either.
  for (int32_t channel = 0; channel < 60; ++channel) {
    EXPECT_EQ(AllCodes(channel), channel == kClosed || channel >= 30 ? Codes{} : Codes{ZELK_EVENT_CHANNEL_STATE})
        << channel;
  }
  for (int32_t channel = 30; channel < 60; ++channel) {
    EXPECT_EQ(State(channel), 3U);
  }
  // Nothing more can be done with the calls, and nothing of it is an error.
  EXPECT_TRUE(app->zelk.Hangup(kConnectedIn));
  EXPECT_FALSE(app->zelk.Reject(kOffered));

  app->Forget();
  Card().HoldFromLibrary(0, false);
  MendLine(0);
  for (int32_t channel = 0; channel < 30; ++channel) {
    EXPECT_EQ(WaitParam(channel, ZELK_EVENT_CHANNEL_STATE), 1);
    EXPECT_EQ(State(channel), 3U) << channel;
  }
  // A new call works while the exchange still holds lost ones, and their end does not touch it.
  Call call = ConnectIncoming(kIdle + 1);
  EXPECT_EQ(State(kIdle), 4U);
  call->Hangup();
  EXPECT_EQ(WaitCause(kIdle), 16);
}

// The end of a lost call is silent and leaves a newer call on its channel alone.
TEST_F(TrunkLoss, a_lost_calls_end_is_silent_and_leaves_a_newer_call_alone) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Call lost = ConnectIncoming(1);
  Card().LoseLayer2(0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE), 0);
  MendLine(0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE, 2), 1);
  ASSERT_FALSE(lost->Reached(ESimCallState::kEnded));
  ForgetAll();
  // The application dials anew; the exchange has the timeslot's old call still and refuses.
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  EXPECT_EQ(WaitCause(0), 44);
  ASSERT_NE(Card().WaitCall(kSoon), nullptr);  // the refused one
  ForgetAll();
  lost->Hangup(16);
  ASSERT_TRUE(lost->WaitEnded(kSoon));
  EXPECT_TRUE(NetworkIsIdle());
  EXPECT_EQ(SentBeforeNow().front(), "RELEASE");
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(State(0), 3U);
  ConnectOutgoing(0);
}

TEST_F(TrunkLoss, a_trunk_that_comes_up_twice_reports_it_once) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  // The exchange asks for a reset of layer 2 on a D-channel that is up: no state changes, so no event follows.
  Card().SendFrame(0, {0x02, 0x01, 0x7F});  // SABME
  Call call = Offer(1);
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 0U);
  // Down and up: each once.
  Card().TakeLayer2Down(0);
  EXPECT_EQ(WaitParam(29, ZELK_EVENT_CHANNEL_STATE, 1), 0);
  EXPECT_EQ(WaitParam(29, ZELK_EVENT_CHANNEL_STATE, 2), 1);
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 60U);
}

// A lost card takes calls in every state and reports channels that were down already.
TEST_F(TrunkLoss, a_lost_card_takes_calls_in_every_state) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2, 1}));
  ASSERT_NO_FATAL_FAILURE(MakeCalls());
  Card().LoseLayer2(1);
  EXPECT_EQ(WaitParam(59, ZELK_EVENT_CHANNEL_STATE), 0);
  app->Forget();
  Card().SetControlSilent(true);
  for (int32_t channel = 0; channel < 60; ++channel) {
    EXPECT_EQ(WaitParam(channel, ZELK_EVENT_CHANNEL_STATE), 0) << channel;
    EXPECT_EQ(AllCodes(channel), (Codes{ZELK_EVENT_CHANNEL_STATE})) << channel;
    ExpectForgotten(channel);
  }
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 0 is down\r\n")) << app->zelk.LogText();
  for (int32_t channel = 60; channel < 90; ++channel) {
    EXPECT_EQ(State(channel), 3U);
    EXPECT_TRUE(AllCodes(channel).empty());
  }
}

TEST_F(TrunkLoss, the_second_cards_trunk_takes_its_own_channels_only) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2, 2}));
  Card(1).LoseLayer2(1);
  for (int32_t channel = 90; channel < 120; ++channel) {
    EXPECT_EQ(WaitParam(channel, ZELK_EVENT_CHANNEL_STATE), 0);
  }
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 30U);
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 2: Trunk 1 - DCHANNEL DOWN\r\n")) << app->zelk.LogText();
}

// A call dialled on a trunk that is down waits for layer 2 and ends when it does not come.
TEST_F(TrunkLoss, a_call_on_a_trunk_that_is_down_waits_for_layer_2) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  Card().LoseLayer2(0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE), 0);
  ForgetAll();
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  EXPECT_TRUE(app->zelk.Dial(1, "1", "2"));
  EXPECT_EQ(app->Text(0, ZELK_INFO_CHANNELSTATE), "DOWN");
  EXPECT_FALSE(app->zelk.Dial(0, "3", "4"));
  // Hung up while it waits, or given up by the protocol's timers.
  EXPECT_TRUE(app->zelk.Hangup(1));
  const int32_t cause = WaitCause(0);
  EXPECT_STRNE(app->zelk.DisconnectReasonToString(cause), "REASON_UNKNOWN") << cause;
  EXPECT_EQ(app->Text(0, ZELK_INFO_DLI), "");
  // The trunk comes back: calls are possible again.
  MendLine(0);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE), 1);
  EXPECT_TRUE(support::Eventually([this] { return State(1) == 3U; }, kSlow)) << State(1) << "\n" << app->zelk.LogText();
  // A SETUP that still waited goes out now: the exchange takes the call and learns that it is none any more.
  SentBeforeNow();
  EXPECT_TRUE(NetworkIsIdle());
  while (Card().WaitCall(std::chrono::milliseconds(0)) != nullptr) {
  }
  app->Forget();
  ConnectOutgoing(0);
  ConnectOutgoing(1);
}

}  // namespace
