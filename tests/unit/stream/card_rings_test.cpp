// SPDX-License-Identifier: GPL-2.0-only
#include "stream/card_rings.h"

#include <gtest/gtest.h>

#include <vector>

#include "audio_pacer_fixture.h"

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

// The digits that are found in 100 ms of the digit 5.
class CardRingsDigits : public AudioPacer {
 protected:
  size_t Found(const SDtmfSettings& settings, int blocks) {
    rings.ResetDetectors(settings);
    for (int block = 0; block < blocks; ++block)
      rings.Detector(0).ProcessBlock(TwoTones(block).data(), kBlockBytes);
    size_t digits = 0;
    while (rings.Detector(0).TakeDigit() != 0)
      ++digits;
    return digits;
  }
};

TEST_F(CardRingsDigits, AResetSetsTheThresholds) {
  SDtmfSettings deaf;
  deaf.totalEnergy = 60;  // more than two tones can have
  EXPECT_EQ(Found(SDtmfSettings(), 5), 1U);
  EXPECT_EQ(Found(deaf, 5), 0U);
  EXPECT_EQ(Found(SDtmfSettings(), 5), 1U);
}

TEST_F(CardRingsDigits, AResetForgetsTheDigitThatLasts) {
  EXPECT_EQ(Found(SDtmfSettings(), 5), 1U);
  EXPECT_EQ(Found(SDtmfSettings(), 5), 1U) << "the same tone, of another card's opening";
}

}  // namespace
}  // namespace zelk
