// SPDX-License-Identifier: GPL-2.0-only
#include <future>
#include <mutex>

#include "system_fixture.h"

namespace {

using cardsim::EControlType;

class Startup : public CSystemTest {};

TEST_F(Startup, numbers_channels_by_card_and_trunk_for_voice_timeslots_only) {
  Start({4, 1});
  ASSERT_EQ(app->zelk.GetChannelCount(), 150);
  int32_t channel = 0;
  for (size_t card = 0; card < 2; ++card) {
    for (uint32_t trunk = 0; trunk < (card == 0 ? 4U : 1U); ++trunk) {
      for (uint32_t timeslot = 1; timeslot < 32; ++timeslot) {
        if (timeslot == 16) {
          continue;
        }
        EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_SERIALNO), Card(card).Serial()) << channel;
        EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_TRUNK), trunk) << channel;
        EXPECT_EQ(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT), timeslot) << channel;
        ++channel;
      }
    }
  }
  EXPECT_EQ(channel, 150);
}

TEST_F(Startup, channel_15_is_trunk_1_timeslot_17_of_the_first_card) {
  Start({4, 1});
  EXPECT_EQ(app->zelk.GetChannelInfo(15, ZELK_INFO_SERIALNO), Card(0).Serial());
  EXPECT_EQ(app->zelk.GetChannelInfo(15, ZELK_INFO_TRUNK), 0U);
  EXPECT_EQ(app->zelk.GetChannelInfo(15, ZELK_INFO_TIMESLOT), 17U);
}

TEST_F(Startup, card_facts_reach_every_channel) {
  Start({1});
  EXPECT_EQ(app->Text(0, ZELK_INFO_SERIALNO), std::to_string(Card().Serial()));
  EXPECT_EQ(app->Text(29, ZELK_INFO_FIRMWAREVER), "7");
  EXPECT_EQ(app->Text(29, ZELK_INFO_FIRMWAREDATE), "20240315");
  EXPECT_EQ(app->Text(29, ZELK_INFO_BURNDATE), "13050900");
}

TEST_F(Startup, speaks_in_the_order_of_a_cards_set_up) {
  Start({2});
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kRegisterRead, kSoon, 2));
  std::vector<EControlType> order;
  for (const cardsim::SControlMessage& message : Card().Seen().Messages()) {
    if (static_cast<EControlType>(message.type) != EControlType::kFrame) {
      order.push_back(static_cast<EControlType>(message.type));
    }
  }
  const std::vector<EControlType> expected = {EControlType::kInformationRequest, EControlType::kStart,
                                              EControlType::kTrunkConfiguration, EControlType::kTrunkConfiguration,
                                              EControlType::kAudioPort,          EControlType::kRegisterRead,
                                              EControlType::kRegisterRead};
  EXPECT_EQ(order, expected);
}

// D-channels come up while the cards are still being opened: that is said on the cards' threads.
TEST_F(Startup, reports_nothing_on_the_thread_that_starts_the_library) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({8, 8}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  for (int round = 0; round < 3; ++round) {
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    for (int32_t channel = 0; channel < 480; ++channel) {
      ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CHANNEL_STATE, kSlow));
      for (const support::SAppEvent& event : app->Events(channel)) {
        ASSERT_NE(event.thread, std::this_thread::get_id()) << channel;
      }
    }
    app->zelk.Shutdown();
    app->Forget();
  }
}

// An application whose callbacks wait for the thread that starts the library, as with a mutex of its own.
TEST_F(Startup, waits_for_no_callback) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({8, 8}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  std::mutex isStarting;
  const CShutdownAtEnd end(*this);
  app->onEvent = [&](const support::SAppEvent&) { const std::lock_guard<std::mutex> held(isStarting); };
  isStarting.lock();
  std::future<bool> init = std::async(std::launch::async, [this] { return app->zelk.Init(); });
  const bool isBack = init.wait_for(kSlow) == std::future_status::ready;
  isStarting.unlock();
  EXPECT_TRUE(isBack);
  EXPECT_TRUE(init.get());
  EXPECT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
}

TEST_F(Startup, without_a_card_starts_with_no_channels) {
  app = std::make_unique<support::CApplication>();
  EXPECT_TRUE(app->zelk.Init());
  EXPECT_EQ(app->zelk.GetChannelCount(), 0);
  EXPECT_EQ(app->zelk.GetLastError(0), static_cast<uint32_t>(ZELK_ERROR_BAD_CHANNEL));
}

TEST_F(Startup, a_second_init_keeps_the_channels) {
  Start({1});
  EXPECT_TRUE(app->zelk.Init());
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_EQ(app->zelk.GetChannelInfo(0, ZELK_INFO_CHANNELSTATE), static_cast<uint32_t>(ZELK_CHANNEL_READY));
}

TEST_F(Startup, shut_down_and_init_again_work_ten_times_in_one_process) {
  Start({2});
  for (int round = 0; round < 10; ++round) {
    OpenAll();
    app->Forget();
    cardsim::Call call = Card().PlaceCall({.trunk = round % 2, .called = std::to_string(round)});
    const int32_t channel = (round % 2) * 30;
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon)) << "round " << round;
    EXPECT_EQ(app->Text(channel, ZELK_INFO_DLI), std::to_string(round));
    app->zelk.Answer(channel);
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon)) << "round " << round;
    app->zelk.Shutdown();
    EXPECT_EQ(app->zelk.GetChannelCount(), 0);
    ASSERT_TRUE(Card().Seen().WaitConnected(false, kSoon));
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    ASSERT_EQ(app->zelk.GetChannelCount(), 60);
  }
}

// A card that does not open keeps its number and counts no trunks.
TEST_F(Startup, a_card_that_does_not_open_keeps_its_number) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1, 2, 1}));
  sim->Start();
  Card(0).SetListening(false);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_EQ(app->zelk.GetChannelCount(), 90);
  EXPECT_EQ(app->zelk.GetChannelInfo(0, ZELK_INFO_SERIALNO), Card(1).Serial());
  // Lines about trunks count the trunks of opened cards, lines about cards the cards that answered.
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 0: Trunk 1 - DCHANNEL UP\r\n")) << app->zelk.LogText();
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 2: Trunk 0 - DCHANNEL UP\r\n")) << app->zelk.LogText();
  Card(1).SetControlSilent(true);
  ASSERT_TRUE(app->WaitEvent(59, ZELK_EVENT_CHANNEL_STATE, kSlow, 2));
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 1 is down\r\n")) << app->zelk.LogText();
  EXPECT_EQ(app->Text(60, ZELK_INFO_CHANNELSTATE), "READY");
}

TEST_F(Startup, every_start_but_the_first_reports_its_cards_up) {
  Start({1, 1});
  ASSERT_TRUE(app->zelk.WaitLog("  G :Card 1: Trunk 0 - DCHANNEL UP\r\n"));
  EXPECT_EQ(app->zelk.LogText().find("is up"), std::string::npos) << "the first open has nobody to report to";
  app->zelk.Shutdown();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(app->zelk.WaitLog("  G :Card 0 is up\r\n")) << app->zelk.LogText();
  ASSERT_TRUE(app->zelk.WaitLog("  G :Card 1 is up\r\n")) << app->zelk.LogText();
}

TEST_F(Startup, shut_down_without_init_and_twice_does_nothing) {
  app = std::make_unique<support::CApplication>();
  app->zelk.Shutdown();
  ASSERT_TRUE(app->zelk.Init());
  app->zelk.Shutdown();
  app->zelk.Shutdown();
  EXPECT_EQ(app->zelk.GetChannelCount(), 0);
}

TEST_F(Startup, the_log_stands_beside_the_library_under_its_name) {
  Start({1});
  EXPECT_TRUE(app->zelk.WaitLog("  G :Card 0: Trunk 0 - DCHANNEL UP\r\n")) << app->zelk.LogText();
}

}  // namespace
