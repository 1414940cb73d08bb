// SPDX-License-Identifier: GPL-2.0-only
#include "stream/card_rings.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(CardRings, EveryPositionOfEveryTrunkHasTheBlocksAskedForBothWays) {
  CCardRings rings;
  ASSERT_TRUE(rings.Create(3, 7));
  EXPECT_EQ(rings.PositionCount(), 96U);
  for (size_t i = 0; i < 96; ++i) {
    EXPECT_EQ(rings.Transmit().FreeCount(i), 7U);
    EXPECT_EQ(rings.Receive().FreeCount(i), 7U);
  }
}

TEST(CardRings, TheLargestCardFits) {
  CCardRings rings;
  ASSERT_TRUE(rings.Create(8, 32));
  EXPECT_EQ(rings.PositionCount(), 256U);
  EXPECT_EQ(rings.Receive().FreeCount(255), 32U);
}

TEST(CardRings, DetectionIsOnAfterAReset) {
  CCardRings rings;
  ASSERT_TRUE(rings.Create(1, 1));
  rings.SetDetectsDigits(3, false);
  rings.ResetDetectors(SDtmfSettings());
  EXPECT_TRUE(rings.DetectsDigits(3));
}

}  // namespace
}  // namespace zelk
