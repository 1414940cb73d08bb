#include <random>

#include "system_fixture.h"

// The control connection: what a card says, in whatever pieces, and what a connection that fails does.
namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::EControlType;
using cardsim::ESimCallState;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kNoInformation{6};  // three waits of a second, the connection, and room

class CControl : public CSystemTest {
 protected:
  // The line of a register value stands in the log behind everything that the card said before it.
  void WaitUntilHeard(uint16_t mark) {
    Card().SendRegisterValue(0, mark, 0xEE);
    char line[40];
    std::snprintf(line, sizeof line, "Reg[0x%04X] = EE ", mark);
    ASSERT_TRUE(app->zelk.WaitLog(line)) << app->zelk.LogText();
  }

  // A whole call in both directions on channel 0.
  void MakeCall() {
    app->Forget();
    ASSERT_TRUE(app->zelk.OpenChannel(0));
    const Call call = Card().PlaceCall({.timeslot = 1, .calling = "0305551234", .called = "8001000"});
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "0305551234");
    app->zelk.Answer(0);
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
    call->Hangup(16);
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon));
  }

  // The trunk bytes of the configuration messages that came, in order.
  std::vector<int> ConfiguredTrunks() {
    std::vector<int> trunks;
    for (const cardsim::SControlMessage& message : Card().Seen().Messages()) {
      if (message.type == static_cast<uint8_t>(EControlType::kTrunkConfiguration)) {
        trunks.push_back(message.bytes[2]);
      }
    }
    return trunks;
  }

  // Starts the library with one card whose answer to the information request is bad or does not come.
  std::chrono::milliseconds TimeInit() {
    app = std::make_unique<support::CApplication>();
    const auto begin = Clock::now();
    EXPECT_TRUE(app->zelk.Init());
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  }

  void MakeSimulator(const std::vector<int>& trunks) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks(trunks));
    sim->Start();
  }
};

TEST_F(CControl, a_stream_that_comes_byte_by_byte_is_read_like_any_other) {
  MakeSimulator({2});
  Card().SetControlPieces(1, 0ms);
  app = std::make_unique<support::CApplication>("[Debug]\nLevel=0\n");
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_EQ(app->zelk.GetChannelCount(), 60);
  ASSERT_NO_FATAL_FAILURE(MakeCall());
  EXPECT_TRUE(app->zelk.WaitLog("READREG: CardNo=0 LinkNo=1, Reg[0x1006] = 5A "));
}

TEST_F(CControl, card_information_split_over_several_receives_is_put_together) {
  MakeSimulator({1});
  Card().SetControlPieces(7, 20ms);
  app = std::make_unique<support::CApplication>();
  ASSERT_TRUE(app->zelk.Init());
  ASSERT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_EQ(app->Text(0, ZELK_INFO_SERIALNO), "100001");
  EXPECT_EQ(app->Text(0, ZELK_INFO_BURNDATE), "13050900");
}

TEST_F(CControl, several_messages_in_one_receive_are_all_taken) {
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

TEST_F(CControl, a_register_read_back_needs_no_marker_for_what_follows_and_unknown_types_are_passed_over) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[Debug]\nLevel=0\n"));
  // Read-back, read-back without a marker, unknown types, read-back: all behind the first marker.
  Card().SendControl({0xFF, 0x02, 0x00, 0x01, 0x20, 0xAA, 0x02, 0x00, 0x02, 0x20, 0xBB, 0x09, 0x44, 0xFF, 0x02, 0x00,
                      0x03, 0x20, 0xCC});
  ASSERT_TRUE(app->zelk.WaitLog("Reg[0x2003] = CC "));
  EXPECT_EQ(CountInLog("Reg[0x2001] = AA "), 1U);
  EXPECT_EQ(CountInLog("Reg[0x2002] = BB "), 1U);
}

TEST_F(CControl, random_bytes_do_no_harm_and_the_stream_is_found_again) {
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

TEST_F(CControl, a_frame_of_299_bytes_is_taken_and_one_of_300_dropped_with_what_follows_intact) {
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

TEST_F(CControl, every_error_has_its_text) {
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

TEST_F(CControl, ten_errors_are_nine_lines_and_a_link_reset_that_configures_the_trunk_before_too) {
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

TEST_F(CControl, a_link_reset_of_the_first_trunk_names_trunk_0_and_the_last_crc4_read) {
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

TEST_F(CControl, a_link_reset_at_level_3_configures_its_own_trunk_only_and_logs_nothing) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[Debug]\nLevel=3\n"));
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kRegisterRead, kSoon, 2));
  Card().ClearSeen();
  Card().SendHdlcErrors(1, 2, 10);
  ASSERT_TRUE(Card().Seen().WaitMessage(EControlType::kTrunkConfiguration, kSoon));
  EXPECT_EQ(ConfiguredTrunks(), std::vector<int>{2});
}

TEST_F(CControl, errors_of_a_line_out_of_service_are_not_reported_and_start_the_count_anew) {
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

TEST_F(CControl, a_line_that_changes_its_status_keeps_its_channels) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[Debug]\nLevel=1\n"));
  app->Forget();
  for (const uint8_t status : std::initializer_list<uint8_t>{1, 2, 0xFF, 0}) {
    Card().SetTrunkStatus(1, status);
  }
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 0U);
}

// ---- information ----

TEST_F(CControl, information_that_comes_unasked_is_taken_and_disturbs_nothing) {
  ASSERT_NO_FATAL_FAILURE(Start({1, 1}, "[Debug]\nLevel=0\n"));
  cardsim::SCardIdentity identity;
  identity.serial = Card().Serial();
  identity.trunks = 8;
  Bytes burst = cardsim::BuildInformation(identity);
  burst.insert(burst.end(), {0xFF, 0x07, 0, 0, 0, 0, 0, 0, 0, 0});
  // Errors and a register of a trunk that has neither controller nor channels.
  for (int i = 0; i < 12; ++i) {
    burst.insert(burst.end(), {0xFF, 0x11, 7, 3});
  }
  burst.insert(burst.end(), {0xFF, 0x10, 8, 5, 0, 0x00, 0x01, 0x7F, 0, 0});
  identity.trunks = 1;
  const Bytes own = cardsim::BuildInformation(identity);
  burst.insert(burst.end(), own.begin(), own.end());
  Card().SendControl(burst);
  ASSERT_NO_FATAL_FAILURE(WaitUntilHeard(0x2000));
  EXPECT_EQ(CountInLog("   G :Card 0: Trunk 7 - HDLC ABORT Error\r\n"), 9U);
  EXPECT_EQ(app->zelk.GetChannelCount(), 60);
  EXPECT_EQ(app->Text(30, ZELK_INFO_CHANNELSTATE), "READY") << "the channels behind are another card's";
  ASSERT_NO_FATAL_FAILURE(MakeCall());
}

TEST_F(CControl, a_card_that_gives_no_information_is_asked_three_times_and_left_out_in_bounded_time) {
  MakeSimulator({1, 1});
  Card(0).SetAnswerInformation(false);
  const auto took = TimeInit();
  EXPECT_GE(took, 3s);
  EXPECT_LT(took, kNoInformation);
  EXPECT_TRUE(Card(0).Seen().WaitMessage(EControlType::kInformationRequest, kSoon, 3));
  EXPECT_TRUE(Card(0).Seen().WaitConnected(false, kSoon));
  ASSERT_TRUE(app->WaitAllReady(kSlow));
  ASSERT_EQ(app->zelk.GetChannelCount(), 30);
  EXPECT_EQ(app->Text(0, ZELK_INFO_SERIALNO), "100002") << "the other card works";
}

TEST_F(CControl, information_that_comes_late_is_still_taken) {
  MakeSimulator({1});
  Card().SetAnswerDelay(1500ms);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
}

TEST_F(CControl, bad_information_ends_the_wait_at_once_and_leaves_the_card_out) {
  std::vector<Bytes> wrong;
  Bytes message{0xFF, 0x01, 'Z', 'E', 'L', 'K', '-', 7, 1};
  message.resize(24, 1);
  wrong.push_back(message);
  message[6] = ' ';
  for (const uint8_t trunks : std::initializer_list<uint8_t>{0, 9, 255}) {
    message[8] = trunks;
    wrong.push_back(message);
  }
  for (const Bytes& information : wrong) {
    MakeSimulator({1});
    Card().SetInformation(information);
    EXPECT_LT(TimeInit(), 2s);
    EXPECT_EQ(app->zelk.GetChannelCount(), 0);
    EXPECT_TRUE(Card().Seen().WaitConnected(false, kSoon));
    app.reset();
    sim.reset();
  }
}

TEST_F(CControl, a_card_that_refuses_the_connection_is_left_out_at_once) {
  MakeSimulator({1, 1});
  Card(0).SetListening(false);
  EXPECT_LT(TimeInit(), 2s);
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
}

// ---- connections that fail ----

TEST_F(CControl, a_reset_connection_is_reported_down_after_a_second_without_data) {
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

TEST_F(CControl, silence_is_reported_once_and_not_before_a_second) {
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

TEST_F(CControl, data_now_and_then_keeps_a_card_up) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  config.cards[0].statusInterval = 800ms;
  ASSERT_NO_FATAL_FAILURE(Start(config));
  app->Forget();
  // Three times the limit, with nothing but a status every 800 ms.
  EXPECT_FALSE(app->WaitEvent(0, ZELK_EVENT_CHANNEL_STATE, 3s)) << app->zelk.LogText();
}

TEST_F(CControl, a_connection_that_the_card_half_closes_is_not_reported_and_still_carries_what_the_library_says) {
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
