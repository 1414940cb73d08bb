// SPDX-License-Identifier: GPL-2.0-only
#include "call/card_channels.h"

#include "call_fixture.h"

namespace zelk::test {
namespace {

class CardChannels : public CCallFixture {
 protected:
  CardChannels() : second(table, 1) { second.Place(4, 120); }

  CCardChannels second;
};

TEST_F(CardChannels, TimeslotsMapAroundTheSignallingOne) {
  EXPECT_EQ(second.SlotOf(0, 1), 120U);
  EXPECT_EQ(second.SlotOf(0, 15), 134U);
  EXPECT_EQ(second.SlotOf(0, 17), 135U);
  EXPECT_EQ(second.SlotOf(0, 31), 149U);
  EXPECT_EQ(second.SlotOf(2, 1), 180U);
}

TEST_F(CardChannels, SlotsOfATrunkAndOfTheCardFollowEachOther) {
  EXPECT_EQ(second.SlotsOfTrunk(1).first, 150U);
  EXPECT_EQ(second.SlotsOfTrunk(1).end, 180U);
  EXPECT_EQ(second.SlotsOfCard().first, 120U);
  EXPECT_EQ(second.SlotsOfCard().end, 360U);
}

TEST_F(CardChannels, ACallWithoutABchannelIsNumberedByTheWholeTable) {
  EXPECT_EQ(CCardChannels::BchannelOfWholeTable(0), 1U);
  EXPECT_EQ(CCardChannels::BchannelOfWholeTable(14), 15U);
  EXPECT_EQ(CCardChannels::BchannelOfWholeTable(15), 17U);
  EXPECT_EQ(CCardChannels::BchannelOfWholeTable(30), 32U);
  EXPECT_EQ(CCardChannels::BchannelOfWholeTable(120), 122U);
  EXPECT_EQ(CCardChannels::BchannelOfWholeTable(1024), 1026U);
}

TEST_F(CardChannels, FramingAndSignallingCarryNoCall) {
  for (uint32_t timeslot = 0; timeslot < 64; ++timeslot) {
    EXPECT_EQ(IsBchannel(timeslot), timeslot != 0 && timeslot != 16) << timeslot;
  }
}

TEST_F(CardChannels, SlotsOfOtherCardsAndOutsideTheTableAreNone) {
  EXPECT_EQ(second.At(119), nullptr);
  EXPECT_EQ(second.At(120), &Channel(120));
  EXPECT_EQ(second.At(149), &Channel(149));
  EXPECT_EQ(second.At(150), nullptr);
  EXPECT_EQ(second.At(second.SlotOf(0xFFFF, 0xFFFF)), nullptr);
}

}  // namespace
}  // namespace zelk::test
