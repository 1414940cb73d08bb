// SPDX-License-Identifier: GPL-2.0-only
#include "stream/demultiplexer.h"

#include <gtest/gtest.h>

#include <vector>

namespace zelk {
namespace {

class Demultiplexer : public testing::Test {
 protected:
  void Create(uint32_t blocks) {
    ASSERT_TRUE(rings.Create(1, blocks));
    ASSERT_TRUE(demultiplexer.Create(rings));
  }

  // Frames whose bytes are the frame's number (from the start of the test) plus the timeslot.
  void Add(size_t count) {
    std::vector<uint8_t> samples(count * 32);
    for (size_t i = 0; i < samples.size(); ++i)
      samples[i] = static_cast<uint8_t>(frame + i / 32 + i % 32);
    demultiplexer.Add(samples.data(), count);
    frame += count;
  }

  CCardRings rings;
  CDemultiplexer demultiplexer;
  size_t frame = 0;
};

TEST_F(Demultiplexer, ABlockLeavesWithTheNextFrameAndTheFirst160AreLost) {
  Create(4);
  Add(320);
  EXPECT_EQ(rings.At(3).receive.ReadyCount(), 0U);
  EXPECT_EQ(rings.At(3).receive.FreeCount(), 3U);
  Add(1);
  for (size_t i = 0; i < 32; ++i) {
    const SReadyBlock block = rings.At(i).receive.PopReady();
    ASSERT_NE(block.data, nullptr);
    for (size_t byte = 0; byte < 160; ++byte)
      ASSERT_EQ(block.data[byte], static_cast<uint8_t>(160 + byte + i));
  }
}

TEST_F(Demultiplexer, APositionWithoutAFreeBlockLosesThose20MsOnly) {
  Create(1);
  Add(161);
  uint8_t* const none = rings.At(5).receive.PopFree();
  EXPECT_EQ(none, nullptr);  // in use for the second 160 frames
  Add(160);                  // the third 160 find no block
  SReadyBlock block = rings.At(5).receive.PopReady();
  ASSERT_NE(block.data, nullptr);
  EXPECT_EQ(block.data[0], static_cast<uint8_t>(160 + 5));
  rings.At(5).receive.PushFree(block.data);
  Add(160);
  EXPECT_EQ(rings.At(5).receive.PopReady().data, nullptr);
  Add(160);
  block = rings.At(5).receive.PopReady();
  ASSERT_NE(block.data, nullptr);
  EXPECT_EQ(block.data[0], static_cast<uint8_t>(480 + 5));
}

TEST_F(Demultiplexer, With32BlocksA640MsBacklogIsKeptAndWhatComesBeyondIsLost) {
  Create(32);
  Add(160 + 40 * 160 + 1);  // nobody takes anything
  CBlockPool& pool = rings.At(9).receive;
  ASSERT_EQ(pool.ReadyCount(), 32U);
  EXPECT_EQ(pool.FreeCount(), 0U);
  for (size_t i = 0; i < 32; ++i) {
    const SReadyBlock block = pool.PopReady();
    ASSERT_NE(block.data, nullptr);
    for (size_t byte = 0; byte < 160; ++byte)
      ASSERT_EQ(block.data[byte], static_cast<uint8_t>(160 + 160 * i + byte + 9)) << i;
    pool.PushFree(block.data);
  }
  Add(160);  // the 20 ms under way have no block yet
  EXPECT_EQ(pool.PopReady().data, nullptr);
  Add(160);
  const SReadyBlock next = pool.PopReady();
  ASSERT_NE(next.data, nullptr);
  EXPECT_EQ(next.data[0], static_cast<uint8_t>(42 * 160 + 9));
}

TEST_F(Demultiplexer, WithoutBlocksEverythingIsLost) {
  Create(0);
  Add(1000);
  EXPECT_EQ(rings.At(0).receive.ReadyCount(), 0U);
}

}  // namespace
}  // namespace zelk
