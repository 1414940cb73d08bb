// SPDX-License-Identifier: GPL-2.0-only
#include "system_fixture.h"

// Cards that restart and say so, and what does not count as saying so.
namespace {

using cardsim::Bytes;
using cardsim::Call;

class Announcements : public CSystemTest {
 protected:
  // An announcement of a given length that carries the serial number as far as it goes.
  static Bytes Announcement(uint32_t serial, size_t length = 22, uint8_t version = 1,
                            const std::string& head = "ZELK B") {
    Bytes datagram(head.begin(), head.end());
    datagram.push_back(version);
    datagram.resize(18, 0);
    for (int shift = 0; shift < 32; shift += 8) {
      datagram.push_back(static_cast<uint8_t>(serial >> shift));
    }
    datagram.resize(length, 0);
    return datagram;
  }

  // Announces the card and waits until it has been opened again.
  void ReopenByAnnouncement(size_t card = 0) {
    const int connections = Card(card).Seen().Connections();
    Card(card).Restart();
    ASSERT_TRUE(Card(card).Seen().WaitConnections(connections + 1, kSoon)) << app->zelk.LogText();
    ASSERT_TRUE(Card(card).WaitUp(kSlow)) << app->zelk.LogText();
  }

  void ExpectACallIsTaken(int32_t channel = 0, size_t card = 0) {
    ASSERT_TRUE(app->zelk.OpenChannel(channel));
    const Call call = Card(card).PlaceCall({.timeslot = 1});
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    app->zelk.Answer(channel);
    ASSERT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
    app->zelk.Hangup(channel);
    ASSERT_TRUE(call->WaitEnded(kSoon));
  }
};

TEST_F(Announcements, of_an_open_card_closes_and_reopens_it_with_two_lines) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  Card().Announce();
  ASSERT_TRUE(Card().Seen().WaitConnections(2, kSoon));
  ASSERT_TRUE(app->zelk.WaitLog("  G :Card reopen has Succeeded\r\n"));
  const std::string log = app->zelk.LogText();
  const size_t first = log.find("  G :Broadcast from Card serial no 100001\r\n");
  ASSERT_NE(first, std::string::npos) << log;
  EXPECT_LT(first, log.find("  G :Card 0 is up\r\n", first)) << log;
  EXPECT_LT(log.find("  G :Card 0 is up\r\n", first), log.find("  G :Card reopen has Succeeded\r\n", first)) << log;
  EXPECT_EQ(log.find("Card 0 is down"), std::string::npos) << "a reopening is not a loss";
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ExpectACallIsTaken();
}

TEST_F(Announcements, at_level_3_reopen_without_a_line) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=3\n"));
  ASSERT_NO_FATAL_FAILURE(ReopenByAnnouncement());
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  app->zelk.Shutdown();
  // A line that is always written comes after all that was logged before it.
  app->zelk.WriteIni("[Debug]\nLevel=2\n");
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(app->zelk.WaitLog("DCHANNEL UP"));
  EXPECT_EQ(CountInLog("Broadcast from Card"), 0U) << app->zelk.LogText();
  EXPECT_EQ(CountInLog("Card reopen"), 0U);
  EXPECT_EQ(CountInLog("DCHANNEL UP"), 1U);
}

TEST_F(Announcements, of_other_cards_other_versions_and_others_are_ignored) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  const uint32_t serial = Card().Serial();
  Card().Broadcast(Announcement(serial + 1));
  Card().Broadcast(Announcement(0));
  Card().Broadcast(Announcement(serial, 22, 2));
  Card().Broadcast(Announcement(serial, 22, 1, "ZELK R"));
  Card().Broadcast(Announcement(serial, 14));
  Card().Broadcast(Bytes());
  Card().Broadcast(Bytes(1400, 0xFF));
  // They are taken in turn: once this one has its effect, the others have had none.
  ASSERT_NO_FATAL_FAILURE(ReopenByAnnouncement());
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded"));
  EXPECT_EQ(CountInLog("Broadcast from Card"), 1U) << app->zelk.LogText();
  EXPECT_EQ(Card().Seen().Connections(), 2);
}

TEST_F(Announcements, of_15_to_21_bytes_are_completed_by_the_one_before) {
  ASSERT_NO_FATAL_FAILURE(Start({1, 1}));
  const uint32_t serial = Card(0).Serial();
  // Nothing has come before: the missing bytes are 0, the serial number is not the card's.
  Card(0).Broadcast(Announcement(serial, 15));
  Card(0).Broadcast(Announcement(serial, 18));
  ASSERT_NO_FATAL_FAILURE(ReopenByAnnouncement(1));
  EXPECT_EQ(Card(0).Seen().Connections(), 1);
  // Now the bytes of the second card's announcement stand there.
  Card(1).Broadcast(Announcement(serial, 15));
  ASSERT_TRUE(Card(1).Seen().WaitConnections(3, kSoon));
  // One byte of the serial number tells the two apart.
  Card(0).Broadcast(Announcement(serial, 19));
  ASSERT_TRUE(Card(0).Seen().WaitConnections(2, kSoon));
}

TEST_F(Announcements, from_a_new_address_lead_there_and_the_next_one_back) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  for (const char* address : {"127.0.1.77", "127.0.1.1"}) {
    const int connections = Card().Seen().Connections();
    Card().Restart(address);
    ASSERT_TRUE(Card().Seen().WaitConnections(connections + 1, kSoon)) << app->zelk.LogText();
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    Card().Audio().KeepReplies(true);
    ASSERT_TRUE(Card().Audio().WaitReplies(10, kSoon)) << "the audio follows";
    Card().Audio().KeepReplies(false);
  }
}

TEST_F(Announcements, bring_back_a_card_that_was_lost) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  app->Forget();
  Card().SetControlSilent(true);
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSlow));
  Card().SetControlSilent(false);
  ASSERT_NO_FATAL_FAILURE(ReopenByAnnouncement());
  ASSERT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
  ExpectACallIsTaken();
}

TEST_F(Announcements, of_a_card_that_cannot_be_opened_are_tried_each_time) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  Card().SetListening(false);
  for (size_t failures = 1; failures <= 2; ++failures) {
    Card().Announce();
    support::Eventually([&] { return CountInLog("Card reopen has failed") >= failures; }, kSoon);
    ASSERT_EQ(CountInLog("Card reopen has failed"), failures) << app->zelk.LogText();
  }
  EXPECT_EQ(app->Text(0, ZELK_INFO_SERIALNO), "100001");
  Card().SetListening(true);
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded")) << app->zelk.LogText();
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  ExpectACallIsTaken();
}

TEST_F(Announcements, with_bad_information_fail_and_the_serial_number_is_kept) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  Bytes bad{0xFF, 0x01};
  bad.resize(24, 'x');
  Card().SetInformation(bad);
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has failed", 20000)) << app->zelk.LogText();
  Card().SetInformation(std::nullopt);
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded", 20000)) << app->zelk.LogText();
}

TEST_F(Announcements, of_a_card_that_failed_at_the_start_are_ignored) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1, 1}));
  sim->Start();
  Card(1).SetListening(false);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_EQ(app->zelk.GetChannelCount(), 30);
  Card(1).SetListening(true);
  Card(1).Announce();
  ASSERT_NO_FATAL_FAILURE(ReopenByAnnouncement());
  ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded"));
  EXPECT_EQ(Card(1).Seen().Connections(), 0);
  EXPECT_EQ(CountInLog("Broadcast from Card"), 1U) << app->zelk.LogText();
}

TEST_F(Announcements, reopen_every_card_of_the_serial_number) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1, 1, 1});
  config.cards[1].identity.serial = config.cards[0].identity.serial;
  ASSERT_NO_FATAL_FAILURE(Start(config));
  Card(0).Announce();
  // Both are looked for where the announcement came from.
  ASSERT_TRUE(Card(0).Seen().WaitConnections(3, kSoon)) << app->zelk.LogText();
  ASSERT_TRUE(Card(1).Seen().WaitConnected(false, kSoon));
  EXPECT_EQ(Card(1).Seen().Connections(), 1);
  EXPECT_EQ(Card(2).Seen().Connections(), 1);
  app->zelk.Shutdown();
  ASSERT_TRUE(app->zelk.Init());  // takes the listener's last lines to the file
  ASSERT_TRUE(app->zelk.WaitLog("is up"));
  EXPECT_EQ(CountInLog("Broadcast from Card serial no 100001\r\n"), 2U) << app->zelk.LogText();
}

TEST_F(Announcements, may_come_in_a_burst) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  constexpr int kBurst = 5;
  for (int i = 0; i < kBurst; ++i) {
    Card().Announce();
  }
  ASSERT_TRUE(Card().Seen().WaitConnections(1 + kBurst, kSlow)) << app->zelk.LogText();
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  ExpectACallIsTaken();
}

}  // namespace
