// SPDX-License-Identifier: GPL-2.0-only
#include "control_fixture.h"

// A control connection that fails.
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class ControlLoss : public CControlTest {};

// A reset connection is reported down after a second without data.
TEST_F(ControlLoss, a_reset_is_reported_after_a_second_without_data) {
  ASSERT_NO_FATAL_FAILURE(Start({1, 1}));
  app->Forget();
  Card(0).SetListening(false);
  const auto begin = Clock::now();
  Card(0).ResetControl();
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSoon)) << app->zelk.LogText();
  // The last data came up to a status interval before the reset.
  EXPECT_GE(Clock::now() - begin, 700ms);
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 30U);
  EXPECT_TRUE(app->zelk.WaitLog("   G :Card 0 is down\r\n"));
}

TEST_F(ControlLoss, silence_is_reported_once_and_not_before_a_second) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  app->Forget();
  const auto begin = Clock::now();
  Card().SetControlSilent(true);
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSlow)) << app->zelk.LogText();
  EXPECT_GE(Clock::now() - begin, 700ms);
  ASSERT_TRUE(Card().Seen().WaitConnected(false, kSoon)) << "the library closes its end";
  app->zelk.Shutdown();
  ASSERT_TRUE(app->zelk.WaitLog("Card 0 is down"));
  EXPECT_EQ(CountInLog("Card 0 is down"), 1U);
}

TEST_F(ControlLoss, data_now_and_then_keeps_a_card_up) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  config.cards[0].statusInterval = 800ms;
  ASSERT_NO_FATAL_FAILURE(Start(config));
  app->Forget();
  // Three times the limit, with nothing but a status every 800 ms.
  EXPECT_FALSE(app->WaitEvent(0, ZELK_EVENT_CHANNEL_STATE, 3s)) << app->zelk.LogText();
}

// A connection that the card half closes is not reported and still carries what the library says.
TEST_F(ControlLoss, a_half_closed_connection_still_carries_the_librarys_side) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  ASSERT_TRUE(app->zelk.OpenChannel(0));
  app->Forget();
  Card().HalfCloseControl();
  Card().ClearSeen();
  ASSERT_TRUE(app->zelk.Dial(0, "123", nullptr));
  EXPECT_TRUE(Card().Seen().WaitQ931(0, cardsim::EDirection::kFromLibrary, "SETUP", kSoon));
  // Well beyond the second without data.
  EXPECT_FALSE(app->WaitEvent(5, ZELK_EVENT_CHANNEL_STATE, 2500ms));
  EXPECT_EQ(CountInLog("is down"), 0U);
  const auto begin = Clock::now();
  app->zelk.Shutdown();
  EXPECT_LT(Clock::now() - begin, 3s);
}

}  // namespace
