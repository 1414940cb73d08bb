#include "card/card_information.h"

#include <gtest/gtest.h>

#include <cstring>

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

}  // namespace
}  // namespace zelk
