// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/e1.h"

#include <gtest/gtest.h>

#include <set>

namespace zelk {
namespace {

TEST(E1, NumbersOfACard) {
  EXPECT_EQ(kCardPort, 5854);
  EXPECT_EQ(kBlockBytes, 160U);
  EXPECT_EQ(kMaxTrunks * kChannelsPerTrunk, 240U);
}

TEST(E1, EveryTimeslotOfACardHasAPositionOfItsOwn) {
  std::set<size_t> positions;
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    for (uint32_t timeslot = 0; timeslot < kTimeslotsPerTrunk; ++timeslot) {
      const size_t position = PositionOf(trunk, timeslot);
      EXPECT_EQ(TrunkOf(position), trunk);
      EXPECT_EQ(TimeslotOf(position), timeslot);
      positions.insert(position);
    }
  }
  EXPECT_EQ(positions.size(), 256U);
  EXPECT_EQ(*positions.rbegin(), kMaxPositions - 1);
}

TEST(E1, PositionsStandAsInASampleFrame) {
  EXPECT_EQ(PositionOf(0, 1), 1U);
  EXPECT_EQ(PositionOf(1, 0), 32U);
  EXPECT_EQ(PositionOf(7, 31), 255U);
}

TEST(E1, VoiceIndexesLeaveOutFramingAndSignalling) {
  size_t index = 0;
  for (uint32_t timeslot = 0; timeslot < kTimeslotsPerTrunk; ++timeslot) {
    if (timeslot == 0 || timeslot == 16) {
      EXPECT_FALSE(IsBchannel(timeslot));
      continue;
    }
    EXPECT_TRUE(IsBchannel(timeslot));
    EXPECT_EQ(VoiceIndexOf(timeslot), index);
    EXPECT_EQ(BchannelOf(index), timeslot);
    ++index;
  }
  EXPECT_EQ(index, 30U);
}

TEST(E1, VoiceIndexesGoOnBeyondTheTrunk) {
  EXPECT_EQ(VoiceIndexOf(33), 31U);
  EXPECT_EQ(BchannelOf(31), 33U);
}

}  // namespace
}  // namespace zelk
