// SPDX-License-Identifier: GPL-2.0-only
#include "card/card_information.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "platform/clock.h"

namespace zelk {
namespace {

struct SBody {
  uint8_t bytes[kCardInformationBytes] = {'Z',  'E',  'L',  'K', ' ',  7,    4,  0x78, 0x56, 0x34, 0x12,
                                          0x8A, 0x87, 0x01, 0,   0x20, 0x18, 11, 30,   13,   5,    9};
};

TEST(CardInformation, ReadsEveryField) {
  const SBody body;
  SCardInformation information;
  ASSERT_TRUE(ParseCardInformation(body.bytes, information));
  EXPECT_EQ(information.firmwareVersion, 7);
  EXPECT_EQ(information.trunkCount, 4);
  EXPECT_EQ(information.featureFlags, 0x12345678U);
  EXPECT_EQ(information.serialNumber, 100234U);
  EXPECT_EQ(information.firmwareDate, "32241130");
  EXPECT_EQ(information.burnDate, "13050900");
}

TEST(CardInformation, DatesPadToTwoDigitsAndPrintLargeBytesWhole) {
  SBody body;
  std::memset(body.bytes + 15, 1, 4);
  std::memset(body.bytes + 19, 255, 3);
  SCardInformation information;
  ASSERT_TRUE(ParseCardInformation(body.bytes, information));
  EXPECT_EQ(information.firmwareDate, "01010101");
  EXPECT_EQ(information.burnDate, "25525525500");
}

TEST(CardInformation, RefusesAForeignBody) {
  for (size_t i = 0; i < 5; ++i) {
    SBody body;
    body.bytes[i] ^= 1;
    SCardInformation information;
    EXPECT_FALSE(ParseCardInformation(body.bytes, information)) << i;
    EXPECT_EQ(information.serialNumber, 0U);
  }
}

TEST(CardInformation, RefusesImpossibleTrunkCounts) {
  SCardInformation information;
  for (int trunks = 0; trunks < 256; ++trunks) {
    SBody body;
    body.bytes[6] = static_cast<uint8_t>(trunks);
    EXPECT_EQ(ParseCardInformation(body.bytes, information), trunks >= 1 && trunks <= 8) << trunks;
  }
}

constexpr uint8_t kGood[kCardInformationBytes] = {'Z', 'E', 'L', 'K', ' ', 2, 3,  1, 0,  0,  0,
                                                  5,   0,   0,   0,   24,  1, 15, 9, 23, 12, 31};
constexpr uint8_t kBad[kCardInformationBytes] = {'X'};

TEST(CardFacts, KeepWhatAGoodMessageSays) {
  CCardFacts facts;
  facts.Take(kGood);
  EXPECT_EQ(facts.serialNumber, 5U);
  EXPECT_EQ(facts.trunkCount, 3U);
  EXPECT_EQ(facts.featureFlags, 1U);
  EXPECT_EQ(facts.firmwareVersion, 2);
  EXPECT_EQ(facts.FirmwareDate(), "24011509");
  EXPECT_EQ(facts.BurnDate(), "23123100");
}

TEST(CardFacts, ABadMessageChangesNothingAndEndsTheWait) {
  CCardFacts facts;
  facts.Take(kGood);
  facts.BeginOpen();
  facts.Take(kBad);
  EXPECT_TRUE(facts.WaitForAnswer(0, nullptr));
  EXPECT_EQ(facts.serialNumber, 0U);
  EXPECT_EQ(facts.trunkCount, 3U);
  EXPECT_EQ(facts.FirmwareDate(), "24011509");
}

TEST(CardFacts, ANewOpenStartsWithoutAnAnswer) {
  CCardFacts facts;
  facts.Take(kGood);
  facts.BeginOpen();
  EXPECT_EQ(facts.serialNumber, 0U);
  EXPECT_FALSE(facts.WaitForAnswer(0, nullptr));
}

TEST(CardFacts, TheWaitEndsWithTheAnswer) {
  CCardFacts facts;
  std::thread card([&] { facts.Take(kGood); });
  EXPECT_TRUE(facts.WaitForAnswer(60000, nullptr));
  card.join();
}

TEST(CardFacts, TheWaitEndsWithoutOne) {
  CCardFacts facts;
  const uint32_t start = TickMs();
  EXPECT_FALSE(facts.WaitForAnswer(60, nullptr));
  EXPECT_GE(TickMs() - start, 60U);
}

TEST(CardFacts, TheWaitCanBeCancelled) {
  CCardFacts facts;
  CStopFlag cancel;
  cancel.Set();
  const uint32_t start = TickMs();
  EXPECT_FALSE(facts.WaitForAnswer(60000, &cancel));
  EXPECT_LT(TickMs() - start, 30000U);
}

}  // namespace
}  // namespace zelk
