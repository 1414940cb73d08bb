// SPDX-License-Identifier: GPL-2.0-only
#include "control_fixture.h"

// The card information, asked for or not.
namespace {

using cardsim::Bytes;
using cardsim::EControlType;
using namespace std::chrono_literals;

constexpr std::chrono::seconds kNoInformation{6};  // three waits of a second, the connection, and room

class CardInformation : public CControlTest {};

TEST_F(CardInformation, that_comes_unasked_is_taken_and_disturbs_nothing) {
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
  EXPECT_EQ(app->Text(30, ZELK_INFO_CHANNELSTATE), "READY") << "the channels after these are another card's";
  ASSERT_NO_FATAL_FAILURE(MakeCall());
}

// A card that gives no information is asked three times and left out in bounded time.
TEST_F(CardInformation, that_never_comes_is_asked_for_three_times) {
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

TEST_F(CardInformation, that_comes_late_is_still_taken) {
  MakeSimulator({1});
  Card().SetAnswerDelay(1500ms);
  app = std::make_unique<support::CApplication>();
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
}

TEST_F(CardInformation, that_is_bad_ends_the_wait_and_leaves_the_card_out) {
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

TEST_F(CardInformation, of_a_card_that_refuses_the_connection_is_not_awaited) {
  MakeSimulator({1, 1});
  Card(0).SetListening(false);
  EXPECT_LT(TimeInit(), 2s);
  EXPECT_EQ(app->zelk.GetChannelCount(), 30);
}

}  // namespace
