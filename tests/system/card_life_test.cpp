// SPDX-License-Identifier: GPL-2.0-only
#include "system_fixture.h"

namespace {

using cardsim::Call;
using Clock = std::chrono::steady_clock;

// The three bounded waits for a card's threads, and room for the rest.
constexpr std::chrono::seconds kCloseLimit{10};

class CardLife : public CSystemTest {
 protected:
  // Calls on every channel of trunk 0 of card 0, all playing.
  void FillTrunk() {
    OpenAll();
    for (int i = 0; i < 30; ++i) {
      cardsim::SCallRequest request;
      request.timeslot = i < 15 ? i + 1 : i + 2;
      request.farEnd.play = cardsim::MakeToneSource({440.0}, -10.0);
      calls.push_back(Card().PlaceCall(request));
    }
    const cardsim::Bytes sound = cardsim::RenderTestPattern(80000, 1);
    for (int i = 0; i < 30; ++i) {
      ASSERT_TRUE(app->WaitEvent(i, ZELK_EVENT_INCOMING_CALL, kSoon)) << i;
      app->zelk.Answer(i);
      ASSERT_TRUE(app->WaitEvent(i, ZELK_EVENT_CONNECTED, kSoon)) << i;
      ASSERT_TRUE(app->zelk.PlayBuffer(i, sound.data(), static_cast<uint32_t>(sound.size())));
    }
  }

  std::vector<Call> calls;
};

// A shut-down with thirty calls in progress ends within the waits for its threads.
TEST_F(CardLife, shut_down_with_thirty_calls_ends_within_the_threads_waits) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  ASSERT_NO_FATAL_FAILURE(FillTrunk());
  const auto begin = Clock::now();
  app->zelk.Shutdown();
  EXPECT_LT(Clock::now() - begin, kCloseLimit);
}

// An announcement reopens a card with calls and the card works again.
TEST_F(CardLife, an_announcement_reopens_a_card_with_calls) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  ASSERT_NO_FATAL_FAILURE(FillTrunk());
  for (int round = 1; round <= 3; ++round) {
    app->Forget();
    Card().Restart();
    // Busy channels are lost with their controllers; all come back with the D-channel.
    if (round == 1) {
      ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSoon));
      EXPECT_EQ(app->Events(29).front().param, 0);
    }
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    ASSERT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
    Call call = Card().PlaceCall({.timeslot = 1});
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    app->zelk.Answer(0);
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
    app->zelk.Hangup(0);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
  EXPECT_TRUE(app->zelk.WaitLog("  G :Broadcast from Card serial no " + std::to_string(Card().Serial()) + "\r\n"));
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card reopen has Succeeded\r\n"));
}

TEST_F(CardLife, a_card_that_restarts_at_a_new_address_is_reached_there) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  OpenAll();
  app->Forget();
  Card().Restart("127.0.1.77");
  ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
  Call call = Card().PlaceCall({.timeslot = 1});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
}

TEST_F(CardLife, a_silent_card_is_reported_down_on_all_its_channels) {
  ASSERT_NO_FATAL_FAILURE(Start({1, 1}));
  app->Forget();
  Card(0).SetControlSilent(true);
  for (int32_t channel = 0; channel < 30; ++channel) {
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CHANNEL_STATE, kSlow)) << app->zelk.LogText();
    EXPECT_EQ(app->Events(channel).front().param, 0);
    EXPECT_EQ(app->Text(channel, ZELK_INFO_CHANNELSTATE), "DOWN");
  }
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 0 is down\r\n")) << app->zelk.LogText();
  for (int32_t channel = 30; channel < 60; ++channel) {
    EXPECT_EQ(app->Text(channel, ZELK_INFO_CHANNELSTATE), "READY") << channel;
  }
}

// A peer that closes the connection is not reported and does not hold up the shut-down.
TEST_F(CardLife, a_peer_that_closes_does_not_hold_up_the_shut_down) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  ASSERT_NO_FATAL_FAILURE(FillTrunk());
  app->Forget();
  Card().SetListening(false);
  Card().DropControl();
  ASSERT_TRUE(Card().Seen().WaitConnected(false, kSoon));
  const auto begin = Clock::now();
  app->zelk.Shutdown();
  EXPECT_LT(Clock::now() - begin, kCloseLimit);
  EXPECT_EQ(app->zelk.LogText().find("is down"), std::string::npos);
}

}  // namespace
