// SPDX-License-Identifier: GPL-2.0-only
#include "playback/wave_block.h"

#include <gtest/gtest.h>

#include <array>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

TEST(WaveBlock, DataAreaIsTheSizeCutTo256PlusAnother256) {
  EXPECT_EQ(CWaveBlock::AreaBytes(0), 256U);
  EXPECT_EQ(CWaveBlock::AreaBytes(255), 256U);
  EXPECT_EQ(CWaveBlock::AreaBytes(256), 512U);
  EXPECT_EQ(CWaveBlock::AreaBytes(0xFFFFFFFF), 0x100000000ULL);
  support::ForgetLargestAllocation();
  const auto block = CWaveBlock::Create(256, 5);
  EXPECT_EQ(support::LargestAllocation(), CAudioStore::kPrefixBytes + sizeof(CWaveBlock) + 512U);
  ASSERT_TRUE(block);
  EXPECT_EQ(block->size, 256U);
  EXPECT_EQ(block->owner, 5U);
  EXPECT_EQ(block->reserved, (std::array<uint32_t, 2>{}));
  EXPECT_FALSE(block->next);
}

TEST(WaveBlock, IsNullAndLeaksNothingWithoutMemory) {
  std::unique_ptr<CWaveBlock> block;
  const uint32_t failures = support::ForEachFailingAllocation([&block] { block = CWaveBlock::Create(1000, 0); },
                                                              [&block](bool failed) { EXPECT_EQ(!block, failed); });
  EXPECT_EQ(failures, 1U);
}

}  // namespace
}  // namespace zelk
