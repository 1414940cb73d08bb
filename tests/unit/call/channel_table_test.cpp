// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_table.h"

#include <limits>
#include <optional>
#include <utility>

#include "call_fixture.h"

namespace zelk::test {
namespace {

using ChannelTable = CCallFixture;

TEST_F(ChannelTable, NumbersFollowCardsTrunksAndTimeslots) {
  ASSERT_EQ(table.Count(), 150);
  EXPECT_EQ(Channel(0).Timeslot(), 1U);
  EXPECT_EQ(Channel(14).Timeslot(), 15U);
  EXPECT_EQ(Channel(15).Timeslot(), 17U);
  EXPECT_EQ(Channel(15).TrunkIndex(), 0);
  EXPECT_EQ(Channel(30).TrunkIndex(), 1);
  EXPECT_EQ(Channel(119).CardIndex(), 0);
  EXPECT_EQ(Channel(120).CardIndex(), 1);
  EXPECT_EQ(Channel(149).Timeslot(), 31U);
}

TEST_F(ChannelTable, NumbersWithoutChannelFindNone) {
  for (const int32_t channel :
       {-1, 150, 1023, 1024, 1025, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
    EXPECT_EQ(table.Find(channel), nullptr) << channel;
  }
  EXPECT_EQ(table.At(1024), nullptr);
  EXPECT_EQ(table.At(std::numeric_limits<size_t>::max()), nullptr);
}

TEST_F(ChannelTable, TableEndsAt1024Channels) {
  CChannelTable full;
  for (uint32_t number = 0; number < kMaxChannels; ++number) {
    ASSERT_TRUE(full.Add(std::make_unique<CDevice>(firstCard, SDevicePlace{0, 0, 1, number})));
  }
  EXPECT_FALSE(full.Add(std::make_unique<CDevice>(firstCard, SDevicePlace{0, 0, 1, kMaxChannels})));
  EXPECT_EQ(full.Count(), 1024);
  EXPECT_NE(full.Find(1023), nullptr);
  EXPECT_EQ(full.Find(1024), nullptr);
}

TEST_F(ChannelTable, ClearingEmptiesIt) {
  table.Clear();
  EXPECT_EQ(table.Count(), 0);
  EXPECT_EQ(table.Find(0), nullptr);
  EXPECT_EQ(table.At(0), nullptr);
}

TEST_F(ChannelTable, AChannelThatIsInUseOutlivesTheClearing) {
  std::optional<CChannelTable::CVisit> visit(std::in_place, table);
  const CDevice* found = visit->Find(3);
  table.Clear();
  EXPECT_EQ(visit->Find(3), nullptr);
  EXPECT_TRUE(found->IsRetired());  // the address sanitizer sees it if it is gone
  visit.reset();
  table.Clear();  // and that it is gone now, or the leak checker tells
}

TEST_F(ChannelTable, ClosingAllClosesTheOpenOnes) {
  Channel(3).Open();
  firstHandlers.OnDchannelUp(0, caller);
  table.CloseAll();
  EXPECT_FALSE(Channel(3).IsOpen());
  EXPECT_EQ(View(3).linkState, -1);
  EXPECT_EQ(View(4).linkState, 1);
}

}  // namespace
}  // namespace zelk::test
