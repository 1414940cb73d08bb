// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/transpose.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace zelk {
namespace {

std::vector<uint8_t> RandomBytes(size_t count) {
  std::mt19937 random(7);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes)
    byte = static_cast<uint8_t>(random());
  return bytes;
}

class Transpose : public testing::TestWithParam<EInstructionSet> {
 protected:
  void SetUp() override {
    if (!IsSupported(GetParam()))
      GTEST_SKIP() << "this machine has no such instructions";
    turning = &TurningFor(GetParam());
  }

  const STurning* turning = nullptr;
};

TEST_P(Transpose, RowsBecomeBlocksAndBlocksRowsForEveryTrunkCount) {
  for (size_t positions = 32; positions <= 256; positions += 32) {
    const std::vector<uint8_t> rows = RandomBytes(160 * positions);
    std::vector<uint8_t> storage(160 * positions);
    std::vector<uint8_t*> blocks;
    for (size_t i = 0; i < positions; ++i)
      blocks.push_back(&storage[160 * i]);
    turning->rowsToBlocks(rows.data(), positions, blocks.data());
    for (size_t i = 0; i < positions; ++i)
      for (size_t frame = 0; frame < 160; ++frame)
        ASSERT_EQ(blocks[i][frame], rows[frame * positions + i]) << positions << " " << i << " " << frame;

    std::vector<uint8_t> back(160 * positions);
    turning->blocksToRows(blocks.data(), positions, back.data());
    EXPECT_EQ(back, rows);
  }
}

TEST_P(Transpose, FindsThePositionsWhoseBytesAreAllTheSame) {
  for (size_t positions = 32; positions <= 256; positions += 32) {
    std::vector<uint8_t> rows(160 * positions);
    for (size_t i = 0; i < rows.size(); ++i)
      rows[i] = static_cast<uint8_t>(i % positions * 3);
    // One byte of each second position is another one: each time in another row, the first and the last among them.
    for (size_t i = 1; i < positions; i += 2)
      rows[(i == 1 ? 0 : i == 3 ? 159 : i * 7 % 160) * positions + i] ^= static_cast<uint8_t>(1U << i % 8);
    std::vector<uint8_t> changes(positions, 0x33);
    turning->findSteady(rows.data(), positions, changes.data());
    for (size_t i = 0; i < positions; ++i)
      EXPECT_EQ(changes[i] != 0, i % 2 == 1) << positions << " " << i;
  }
}

TEST_P(Transpose, SixteenPositionsWithoutBlocksKeepTheirRows) {
  const std::vector<uint8_t> storage = RandomBytes(160 * 32);
  std::vector<const uint8_t*> blocks(64, nullptr);
  for (size_t i = 0; i < 32; ++i)
    blocks[16 + i] = &storage[160 * i];
  std::vector<uint8_t> rows(160 * 64, 0x77);
  turning->blocksToRows(blocks.data(), 64, rows.data());
  for (size_t i = 0; i < 64; ++i)
    for (size_t frame = 0; frame < 160; ++frame)
      ASSERT_EQ(rows[frame * 64 + i], i < 16 || i >= 48 ? 0x77 : storage[160 * (i - 16) + frame]);
}

TEST_P(Transpose, ANullBlockIsLeftOut) {
  const std::vector<uint8_t> rows = RandomBytes(160 * 32);
  std::vector<uint8_t> only(160);
  std::vector<uint8_t*> blocks(32, nullptr);
  blocks[17] = only.data();
  turning->rowsToBlocks(rows.data(), 32, blocks.data());
  for (size_t frame = 0; frame < 160; ++frame)
    ASSERT_EQ(only[frame], rows[frame * 32 + 17]);
}

INSTANTIATE_TEST_SUITE_P(Forms, Transpose,
                         testing::Values(EInstructionSet::kPlain, EInstructionSet::kBaseline, EInstructionSet::kAvx2));

TEST(TransposeForm, TheOneInUseTurnsToo) {
  const std::vector<uint8_t> rows = RandomBytes(160 * 32);
  std::vector<uint8_t> storage(160 * 32);
  std::vector<uint8_t*> blocks;
  for (size_t i = 0; i < 32; ++i)
    blocks.push_back(&storage[160 * i]);
  RowsToBlocks(rows.data(), 32, blocks.data());
  EXPECT_EQ(storage[160 * 5 + 7], rows[7 * 32 + 5]);
  std::vector<uint8_t> back(160 * 32);
  BlocksToRows(blocks.data(), 32, back.data());
  EXPECT_EQ(back, rows);
}

}  // namespace
}  // namespace zelk
