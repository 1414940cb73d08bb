// SPDX-License-Identifier: GPL-2.0-only
#include <filesystem>

#include "common/g711.h"
#include "system_fixture.h"

// What the keys of the ini file do, seen from the card.
namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::EControlType;
using cardsim::EDirection;
using cardsim::EFrameKind;

constexpr uint8_t kCalledPartyNumber = 0x70;
constexpr uint8_t kSendingCompleteElement = 0xA1;

class ConfigEffect : public CSystemTest {
 protected:
  // The messages of a type since the card's last connection.
  std::vector<Bytes> Messages(EControlType type, size_t card = 0) {
    std::vector<Bytes> found;
    for (const cardsim::SControlMessage& message : Card(card).Seen().Messages()) {
      if (message.Is(type)) {
        found.push_back(message.bytes);
      }
    }
    return found;
  }

  // The Crc4 bytes that trunks 1, 2 ... were configured with.
  std::vector<int> Crc4Bytes(size_t card = 0) {
    std::vector<int> found;
    for (const Bytes& message : Messages(EControlType::kTrunkConfiguration, card)) {
      EXPECT_EQ(message[2], found.size() + 1);
      EXPECT_EQ(message[3], 1);
      EXPECT_EQ(Bytes(message.begin() + 5, message.end()), Bytes(4, 0));
      found.push_back(message[4]);
    }
    return found;
  }

  void Reopen() {
    const int connections = Card().Seen().Connections();
    Card().ClearSeen();
    Card().Restart();
    ASSERT_TRUE(Card().Seen().WaitConnections(connections + 1, kSoon));
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    ASSERT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
  }

  // The first frame of a kind that the library sent on a trunk.
  Bytes FirstFrame(EFrameKind kind, int trunk = 0) {
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      if (frame.direction == EDirection::kFromLibrary && frame.trunk == trunk && frame.Decode().kind == kind) {
        return frame.bytes;
      }
    }
    return {};
  }

  // The SETUP of a call that is placed on the first channel of a trunk.
  cardsim::SQ931Message SetupOn(int trunk) {
    EXPECT_TRUE(app->zelk.OpenChannel(trunk * 30));
    EXPECT_TRUE(app->zelk.Dial(trunk * 30, "123", "456"));
    EXPECT_TRUE(Card().Seen().WaitQ931(trunk, EDirection::kFromLibrary, "SETUP", kSoon));
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const cardsim::SQ931Message message = frame.Decode().message;
      if (frame.trunk == trunk && message.valid && message.name == "SETUP") {
        return message;
      }
    }
    return {};
  }

  int NumberTypeOn(int trunk) {
    const cardsim::SQ931Message setup = SetupOn(trunk);
    const cardsim::SInformationElement* number = setup.Find(kCalledPartyNumber);
    return number == nullptr || number->content.empty() ? -1 : number->content[0] & 0x7F;
  }

  // What is heard of these digits, in a call of its own.
  std::string HeardOf(const std::string& digits) {
    EXPECT_TRUE(app->zelk.OpenChannel(0));
    app->Forget();
    const cardsim::Call call = Card().PlaceCall({.timeslot = 1});
    EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
    app->zelk.Answer(0);
    EXPECT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
    app->Record(0);
    call->SendDigits(digits);
    EXPECT_TRUE(call->WaitPlayed(kSlow));
    // Digits of a block are reported before its sound is recorded.
    EXPECT_TRUE(app->WaitRecorded(0, app->Recorded(0).size() + 8 * ZELK_BLOCK_BYTES, kSoon));
    std::string heard;
    for (const support::SAppEvent& event : app->Events(0)) {
      if (event.code == ZELK_EVENT_DTMF) {
        heard += static_cast<char>(event.param);
      }
    }
    call->Hangup();
    EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon));
    EXPECT_TRUE(call->WaitEnded(kSoon));
    return heard;
  }

  bool HasCapture(int trunk) {
    return std::filesystem::exists(app->zelk.Folder() + "/zelk-" + std::to_string(Card().Serial()) + "-" +
                                   std::to_string(trunk) + ".hdlc");
  }
};

TEST_F(ConfigEffect, without_a_file_every_key_has_its_default_effect) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  EXPECT_EQ(Crc4Bytes(), std::vector<int>{0});
  EXPECT_EQ(FirstFrame(EFrameKind::kSabme), (Bytes{0x00, 0x01, 0x7F})) << "a command of the user side";
  EXPECT_FALSE(HasCapture(1));
  const cardsim::SQ931Message setup = SetupOn(0);
  ASSERT_NE(setup.Find(kCalledPartyNumber), nullptr);
  EXPECT_EQ(setup.Find(kCalledPartyNumber)->content[0], 0xA1) << "national, ISDN";
  EXPECT_NE(setup.Find(kSendingCompleteElement), nullptr) << "Euro ISDN";
}

// The signalling stack has neither side to play then: it says so, sends nothing, and the trunk stays down.
TEST_F(ConfigEffect, client_types_1000_and_1001_leave_their_trunks_down) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({3}));
  sim->Start();
  app = std::make_unique<support::CApplication>("[100001-2]\nClientType=1000\n[100001-3]\nClientType=1001\n");
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_TRUE(app->zelk.WaitLog("Debug Message: Card[0] Link[1]: Don't know how to SABME on a type 5 node"))
      << app->zelk.LogText();
  EXPECT_TRUE(app->zelk.WaitLog("Debug Message: Card[0] Link[2]: Don't know how to SABME on a type 10 node"))
      << app->zelk.LogText();
  ASSERT_TRUE(app->WaitEvent(29, ZELK_EVENT_CHANNEL_STATE, kSlow)) << "the first trunk has its side";
  EXPECT_NE(SetupOn(0).Find(kCalledPartyNumber), nullptr);
  for (const int trunk : {1, 2}) {
    EXPECT_TRUE(FirstFrame(EFrameKind::kSabme, trunk).empty());
    EXPECT_TRUE(app->Events(trunk * 30).empty());
    EXPECT_EQ(app->Text(trunk * 30, ZELK_INFO_CHANNELSTATE), "DOWN");
  }
}

// No two tones reach 60 times the sum of squares, so with that threshold no digit is heard.
TEST_F(ConfigEffect, dtmf_values_reach_a_card_at_its_next_open_and_not_before) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  Card().Audio().SetWaitForReplies(true);
  EXPECT_EQ(HeardOf("5"), "5");
  app->zelk.WriteIni("[Dtmf]\nTotalEnergy=60\n");
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_EQ(HeardOf("6"), "6") << "the card is open";
  ASSERT_NO_FATAL_FAILURE(Reopen());
  EXPECT_EQ(HeardOf("7"), "");
  app->zelk.WriteIni("");
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_EQ(HeardOf("8"), "") << "the card is open";
  ASSERT_NO_FATAL_FAILURE(Reopen());
  EXPECT_EQ(HeardOf("9"), "9");
}

// CRC4 reaches the card as its low byte from the trunk's section or from General.
TEST_F(ConfigEffect, crc4_is_a_low_byte_of_the_trunks_section_or_general) {
  ASSERT_NO_FATAL_FAILURE(Start({3}, "[General]\nCrc4=2\n[100001-2]\nCrc4=259\n[100001-3]\nCrc4=-1\n"));
  EXPECT_EQ(Crc4Bytes(), (std::vector<int>{2, 3, 255}));
}

TEST_F(ConfigEffect, each_card_has_sections_of_its_own) {
  ASSERT_NO_FATAL_FAILURE(Start({1, 2}, "[100001-1]\nCrc4=1\n[100002-2]\nCrc4=4\n"));
  EXPECT_EQ(Crc4Bytes(0), std::vector<int>{1});
  EXPECT_EQ(Crc4Bytes(1), (std::vector<int>{0, 4}));
}

TEST_F(ConfigEffect, malformed_and_unusual_values_follow_the_readers_rules) {
  ASSERT_NO_FATAL_FAILURE(Start({8},
                                "\r\n; Crc4 of eight trunks\r\n[general]\r\ncrc4 = 7\r\nCrc4=8\r\n"
                                "[100001-1]\r\nCrc4=abc\r\n[100001-2]\r\nCrc4=  12x3\r\n[100001-3]\r\nCrc4=\r\n"
                                "[100001-4]\r\n  CRC4\t=\t\"5\"  \r\n[100001-5]\r\nCrc4=\t\r\n[100001-5]\r\nCrc4=9\r\n"
                                "[100001-6]\r\nCrc4=-2\r\n[100001-7]\r\nno equals sign\r\n[100001-8]\nCrc4=6"));
  EXPECT_EQ(Crc4Bytes(), (std::vector<int>{0, 12, 7, 5, 7, 254, 7, 6}));
}

TEST_F(ConfigEffect, a_number_is_decimal_whatever_its_prefix) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[100001-1]\nCrc4=0x10\n[100001-2]\nCrc4=010\n"));
  EXPECT_EQ(Crc4Bytes(), (std::vector<int>{0, 10}));
}

TEST_F(ConfigEffect, client_type_1_makes_a_trunk_the_network_side) {
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({2});
  config.cards[0].roles[1].userSide = true;
  ASSERT_NO_FATAL_FAILURE(Start(config, "[100001-2]\nClientType=1\n"));
  EXPECT_EQ(FirstFrame(EFrameKind::kSabme, 0), (Bytes{0x00, 0x01, 0x7F}));
  EXPECT_EQ(FirstFrame(EFrameKind::kSabme, 1), (Bytes{0x02, 0x01, 0x7F})) << "a command of the network side";
}

TEST_F(ConfigEffect, two_network_sides_are_reported_as_a_wrong_configuration) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>("[General]\nClientType=1\n");
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_TRUE(app->zelk.WaitLog(
      "  G :Card 0: Trunk 0 - Configuration Incorrect. Please set ClientType=1 for NT or ClientType=2 for TE\r\n"))
      << app->zelk.LogText();
}

TEST_F(ConfigEffect, switch_type_chooses_the_dialect_of_a_trunk) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[100001-2]\nSwitchType=1\n"));
  EXPECT_NE(SetupOn(0).Find(kSendingCompleteElement), nullptr) << "Euro ISDN says that the number is complete";
  EXPECT_EQ(SetupOn(1).Find(kSendingCompleteElement), nullptr) << "National ISDN does not";
}

TEST_F(ConfigEffect, number_type_stands_in_the_setup_of_the_trunks_calls) {
  ASSERT_NO_FATAL_FAILURE(
      Start({3}, "[General]\nNumberType=65\n[100001-2]\nNumberType=17\n[100001-3]\nNumberType=0\n"));
  EXPECT_EQ(NumberTypeOn(0), 65);
  EXPECT_EQ(NumberTypeOn(1), 17);
  EXPECT_EQ(NumberTypeOn(2), 0);
}

TEST_F(ConfigEffect, hangup_on_alerting_leaves_a_call_that_alerts_first) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[100001-2]\nHangupOnAlerting=1\n"));
  for (const int32_t channel : {0, 30}) {
    ASSERT_TRUE(app->zelk.OpenChannel(channel));
    ASSERT_TRUE(app->zelk.Dial(channel, "123", nullptr));
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon));
    EXPECT_EQ(app->CallEvents(channel),
              (std::vector<uint32_t>{ZELK_EVENT_PROCEEDING, ZELK_EVENT_ALERTING, ZELK_EVENT_CONNECTED}));
  }
}

TEST_F(ConfigEffect, hdlc_log_writes_a_capture_of_the_trunks_that_have_it) {
  ASSERT_NO_FATAL_FAILURE(Start({3}, "[General]\nHdlcLog=2\n[100001-2]\nHdlcLog=0\n"));
  EXPECT_TRUE(HasCapture(1));
  EXPECT_FALSE(HasCapture(2));
  EXPECT_TRUE(HasCapture(3));
}

TEST_F(ConfigEffect, sections_are_read_again_when_a_card_is_opened_again) {
  ASSERT_NO_FATAL_FAILURE(Start({2}, "[General]\nCrc4=1\nNumberType=33\n[100001-1]\nCrc4=2\n"));
  EXPECT_EQ(Crc4Bytes(), (std::vector<int>{2, 1}));
  app->zelk.WriteIni("[General]\nCrc4=9\n[100001-1]\nCrc4=3\nNumberType=65\nHdlcLog=1\n");
  ASSERT_NO_FATAL_FAILURE(Reopen());
  EXPECT_EQ(Crc4Bytes(), (std::vector<int>{3, 1})) << "the general values stay those of the last ZELK_Init";
  EXPECT_EQ(NumberTypeOn(0), 65);
  EXPECT_TRUE(HasCapture(1));
  EXPECT_FALSE(HasCapture(2));
}

TEST_F(ConfigEffect, a_second_init_reads_the_general_values_for_the_next_open) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[General]\nCrc4=1\n"));
  EXPECT_EQ(Crc4Bytes(), std::vector<int>{1});
  app->zelk.WriteIni("[General]\nCrc4=5\nNumberType=65\n");
  ASSERT_TRUE(app->zelk.Init());
  EXPECT_EQ(Crc4Bytes(), std::vector<int>{1}) << "an open card is left as it is";
  EXPECT_EQ(NumberTypeOn(0), 33);
  ASSERT_NO_FATAL_FAILURE(Reopen());
  EXPECT_EQ(Crc4Bytes(), std::vector<int>{5});
  EXPECT_EQ(NumberTypeOn(0), 65);
}

// Values that nobody can mean leave their trunk down and the others working.
TEST_F(ConfigEffect, nonsense_leaves_its_trunk_down_and_the_others_working) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({3}));
  sim->Start();
  app = std::make_unique<support::CApplication>(
      "[General]\nAudioBuffers=-5\nEchoCanceller=-1\n[100001-1]\nEchoTail=-1\nNumberType=-2147483648\n"
      "[100001-2]\nSwitchType=99\nClientType=-7\n[100001-3]\nEchoTail=2147483647\nNumberType=99999999999\n");
  ASSERT_TRUE(app->zelk.Init());
  ASSERT_EQ(app->zelk.GetChannelCount(), 90);
  for (const int trunk : {0, 2}) {
    const int32_t channel = trunk * 30;
    ASSERT_TRUE(app->WaitEvent(channel + 29, ZELK_EVENT_CHANNEL_STATE, kSlow)) << app->zelk.LogText();
    ASSERT_TRUE(app->zelk.OpenChannel(channel));
    ASSERT_TRUE(app->zelk.Dial(channel, "123", nullptr));
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon)) << app->zelk.LogText();
  }
  EXPECT_TRUE(app->zelk.WaitLog("  G :EchoTail -1 is out of range, 32 is used\r\n")) << app->zelk.LogText();
  EXPECT_EQ(app->zelk.LogText().find("EchoTail 2147483647"), std::string::npos);  // once is enough
  // The signalling stack gets the number as it is, and says so.
  EXPECT_TRUE(app->zelk.WaitLog("  G :Debug Message: Card[0] Link[1]: Don't know how to SABME on a type -7 node"))
      << app->zelk.LogText();
  ASSERT_TRUE(app->zelk.OpenChannel(30));
  app->zelk.Dial(30, "123", nullptr);
  app->zelk.Hangup(30);
  EXPECT_EQ(app->Text(30, ZELK_INFO_CHANNELSTATE), "DOWN");
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), 60U);
}

// The echo canceller takes away an echo within EchoTail on its trunks.
TEST_F(ConfigEffect, echo_canceller_takes_an_echo_within_its_tail_away) {
  constexpr size_t kSecond = 8000;
  constexpr size_t kSeconds = 5;
  ASSERT_NO_FATAL_FAILURE(
      Start({3}, "[General]\nEchoCanceller=1\n[100001-1]\nEchoCanceller=0\n[100001-3]\nEchoTail=64\n"));
  Card().Audio().SetWaitForReplies(true);
  const Bytes noise = cardsim::RenderTestPattern(kSeconds * kSecond, 1);
  std::vector<Call> calls;
  for (int trunk = 0; trunk < 3; ++trunk) {
    const int32_t channel = trunk * 30;
    ASSERT_TRUE(app->zelk.OpenChannel(channel));
    app->Record(channel);
    calls.push_back(Card().PlaceCall({.trunk = trunk, .timeslot = 1}));
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon));
    ASSERT_TRUE(app->zelk.Answer(channel));
    ASSERT_TRUE(calls.back()->WaitState(cardsim::ESimCallState::kConnected, kSoon));
    Card().Audio().SetEcho(trunk, 1, cardsim::SEchoPath{.delayFrames = 400, .lossDb = 12});
    ASSERT_TRUE(app->zelk.PlayBuffer(channel, noise.data(), static_cast<uint32_t>(noise.size())));
  }
  std::vector<double> levels;
  for (int32_t channel = 0; channel < 90; channel += 30) {
    ASSERT_TRUE(app->WaitRecorded(channel, kSeconds * kSecond, kSlow));
    const std::vector<uint8_t> recorded = app->Recorded(channel);
    levels.push_back(tool::Dbm0OfALaw(recorded.data() + (kSeconds - 2) * kSecond, kSecond));
  }
  EXPECT_GT(levels[0], -30);
  EXPECT_GT(levels[1], levels[0] - 3) << "an echo after the default tail of 32 ms stays";
  EXPECT_LT(levels[2], levels[0] - 20) << "one within 64 ms goes";
  EXPECT_EQ(Card().Audio().EchoesTooLate(), 0U);
}

}  // namespace
