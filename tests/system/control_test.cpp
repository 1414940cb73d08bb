// SPDX-License-Identifier: GPL-2.0-only
#include <random>

#include "control_fixture.h"

// The control connection: what a card says, in whatever pieces.
namespace {

using cardsim::Bytes;
using cardsim::EControlType;
using namespace std::chrono_literals;

class Control : public CControlTest {};

TEST_F(Control, a_stream_that_comes_byte_by_byte_is_read_like_any_other) {
  MakeSimulator({2});
  Card().SetControlPieces(1, 0ms);
  app = std::make_unique<support::CApplication>("[Debug]\nLevel=0\n");
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_EQ(app->zelk.GetChannelCount(), 60);
  ASSERT_NO_FATAL_FAILURE(MakeCall());
  EXPECT_TRUE(app->zelk.WaitLog("READREG: CardNo=0 LinkNo=1, Reg[0x1006] = 5A "));
}

TEST_F(Control, card_information_split_over_several_receives_is_put_together) {
  MakeSimulator({1});
  Card().SetControlPieces(7, 20ms);
  app = std::make_unique<support::CApplication>();
  ASSERT_TRUE(app->zelk.Init());
  ASSERT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_EQ(app->Text(0, ZELK_INFO_SERIALNO), "100001");
  EXPECT_EQ(app->Text(0, ZELK_INFO_BURNDATE), "13050900");
}

TEST_F(Control, several_messages_in_one_receive_are_all_taken) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  Card().HoldControl(true);
  for (uint16_t number = 0; number < 40; ++number) {
    Card().SendRegisterValue(0, number, 0x11);
    Card().SendHdlcError(0, 4);
    Card().SendFrame(0, {0x02, 0x01, 0x01, 0x01});  // RR: a good frame that starts the count of errors anew
  }
  Card().HoldControl(false);
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(CountInLog("] = 11 "), 40U);
  EXPECT_EQ(CountInLog("HDLC OVERRUN Error"), 40U);
  ASSERT_NO_FATAL_FAILURE(MakeCall());
}

// A register read back needs no marker for what follows and unknown types are passed over.
TEST_F(Control, needs_no_marker_after_a_register_and_skips_unknown_types) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  // Read-back, read-back without a marker, unknown types, read-back: all after the first marker.
  Card().SendControl({0xFF, 0x02, 0x00, 0x01, 0x20, 0xAA, 0x02, 0x00, 0x02, 0x20, 0xBB, 0x09, 0x44, 0xFF, 0x02, 0x00,
                      0x03, 0x20, 0xCC});
  ASSERT_TRUE(app->zelk.WaitLog("Reg[0x2003] = CC "));
  EXPECT_EQ(CountInLog("Reg[0x2001] = AA "), 1U);
  EXPECT_EQ(CountInLog("Reg[0x2002] = BB "), 1U);
}

TEST_F(Control, random_bytes_do_no_harm_and_the_stream_is_found_again) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[Debug]\nLevel=3\n"));
  std::mt19937 random(7);
  for (int i = 0; i < 200; ++i) {
    Bytes junk(1 + random() % 400);
    for (uint8_t& byte : junk) {
      byte = static_cast<uint8_t>(random());
    }
    Card().SendControl(junk);
  }
  // The longest message is 304 bytes: this ends whatever the junk began, and leaves no message begun.
  Card().SendControl(Bytes(400, 0x00));
  // The junk may have carried frames that broke layer 2, errors and a line status: all of it heals.
  ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
  Card().Restart();
  ASSERT_TRUE(Card().Seen().WaitConnections(2, kSoon));
  ASSERT_TRUE(Card().WaitUp(kSlow));
  ASSERT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
  ASSERT_NO_FATAL_FAILURE(MakeCall());
}

// A frame of 299 bytes is taken and one of 300 dropped with what follows intact.
TEST_F(Control, a_frame_of_299_bytes_is_taken_and_one_of_300_dropped) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  for (int i = 0; i < 9; ++i) {
    Card().SendHdlcError(0, 2);
  }
  // Taken: a complete frame starts the error count anew, so the next error is no link reset.
  Bytes message{0xFF, 0x10, 0x01, 0x2B, 0x01};
  message.resize(5 + 299, 0x00);
  Card().SendControl(message);
  for (int i = 0; i < 9; ++i) {
    Card().SendHdlcError(0, 2);
  }
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(CountInLog("HDLC CRC Error"), 18U);
  EXPECT_EQ(CountInLog("Link Reset"), 0U);
  // Dropped at its length: its bytes are no message, and the count goes on to ten.
  message = {0xFF, 0x10, 0x01, 0x2C, 0x01};
  message.resize(5 + 300, 0x00);
  Card().SendControl(message);
  Card().SendHdlcError(0, 2);
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2001));
  EXPECT_EQ(CountInLog("Link Reset"), 1U);
}

TEST_F(Control, every_error_has_its_text) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=1\n"));
  for (const uint8_t code : std::initializer_list<uint8_t>{2, 3, 4, 8, 5}) {
    Card().SendHdlcError(0, code);
  }
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  const std::string log = app->zelk.LogText();
  size_t at = 0;
  for (const char* text : {"CRC", "ABORT", "OVERRUN", "Buffer Overflow", "Unknown"}) {
    const std::string line = "   G :Card 0: Trunk 0 - HDLC " + std::string(text) + " Error\r\n";
    at = log.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << log;
  }
}

// Ten errors are nine lines and a link reset that configures the trunk before too.
TEST_F(Control, ten_errors_are_nine_lines_and_a_link_reset_of_two_trunks) {
  ASSERT_NO_FATAL_FAILURE(Start({3}, "[Debug]\nLevel=1\n"));
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kRegisterRead, kSoon, 3));
  Card().ClearSeen();
  Card().SendHdlcErrors(1, 3, 30);
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(CountInLog("   G :Card 0: Trunk 1 - HDLC ABORT Error\r\n"), 9U);
  EXPECT_EQ(CountInLog("   G :Card 0: Trunk 1 - Link Reset (Too Many HDLC Errors)\r\n"), 1U);
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kTrunkConfiguration, kSoon, 2));
  EXPECT_EQ(ConfiguredTrunks(), (std::vector<int>{1, 2}));
  EXPECT_TRUE(Card().Seen().IsTrunkUp(1)) << "the controller is left as it is";
}

TEST_F(Control, a_link_reset_of_trunk_1_names_trunk_0_and_the_last_crc4) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[Debug]\nLevel=1\n[100001-1]\nCrc4=1\n[100001-2]\nCrc4=2\n"));
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kRegisterRead, kSoon, 2));
  Card().ClearSeen();
  Card().SendHdlcErrors(0, 2, 10);
  ASSERT_TRUE(app->zelk.WaitLog("Link Reset"));
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kTrunkConfiguration, kSoon));
  EXPECT_EQ(ConfiguredTrunks(), (std::vector<int>{0, 1}));
  for (const cardsim::SControlMessage& message : Card().Seen().Messages()) {
    if (message.type == static_cast<uint8_t>(EControlType::kTrunkConfiguration)) {
      EXPECT_EQ(message.bytes[4], 2);
    }
  }
}

// A link reset at level 3 configures its own trunk only and logs nothing.
TEST_F(Control, a_link_reset_at_level_3_is_of_one_trunk_and_not_logged) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[Debug]\nLevel=3\n"));
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kRegisterRead, kSoon, 2));
  Card().ClearSeen();
  Card().SendHdlcErrors(1, 2, 10);
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kTrunkConfiguration, kSoon));
  EXPECT_EQ(ConfiguredTrunks(), std::vector<int>{2});
}

// Errors of a line out of service are not reported and start the count anew.
TEST_F(Control, errors_of_a_line_out_of_service_start_the_count_anew) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=1\n"));
  Card().SendHdlcErrors(0, 2, 9);
  Card().SetTrunkStatus(0, 1);
  Card().SendHdlcErrors(0, 2, 50);
  Card().SetTrunkStatus(0, 0);
  Card().SendHdlcErrors(0, 2, 9);
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(CountInLog("HDLC CRC Error"), 18U);
  EXPECT_EQ(CountInLog("Link Reset"), 0U);
}

TEST_F(Control, a_line_that_changes_its_status_keeps_its_channels) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[Debug]\nLevel=1\n"));
  app->Forget();
  for (const uint8_t status : std::initializer_list<uint8_t>{1, 2, 0xFF, 0}) {
    Card().SetTrunkStatus(1, status);
  }
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 0U);
}

}  // namespace
