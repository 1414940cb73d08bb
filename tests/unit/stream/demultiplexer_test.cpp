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
  EXPECT_EQ(rings.Receive().ReadyCount(3), 0U);
  Add(1);
  for (size_t i = 0; i < 32; ++i) {
    const SPoolBlock block = rings.Receive().NextReady(i);
    ASSERT_TRUE(block);
    for (size_t byte = 0; byte < 160; ++byte)
      ASSERT_EQ(block.data[byte], static_cast<uint8_t>(160 + byte + i));
    EXPECT_EQ(rings.Receive().ReadyCount(i), 1U);
  }
}

TEST_F(Demultiplexer, CreatedAgainItBeginsAnew) {
  Create(4);
  Add(200);  // a block of the old rings is being filled
  Create(4);
  frame = 0;
  Add(160);
  EXPECT_EQ(rings.Receive().ReadyCount(3), 0U);
  Add(1);
  EXPECT_EQ(rings.Receive().ReadyCount(3), 0U) << "the first 160 frames are lost";
  Add(160);
  ASSERT_EQ(rings.Receive().ReadyCount(3), 1U);
  EXPECT_EQ(rings.Receive().NextReady(3).data[0], static_cast<uint8_t>(160 + 3));
}

TEST_F(Demultiplexer, APositionWithoutAFreeBlockLosesThose20MsOnly) {
  Create(1);
  CBlockPool& pool = rings.Receive();
  Add(161);  // the only block is in use for the second 160 frames
  Add(160);  // the third 160 find none
  SPoolBlock block = pool.NextReady(5);
  ASSERT_TRUE(block);
  EXPECT_EQ(block.data[0], static_cast<uint8_t>(160 + 5));
  pool.PushFree(5);
  Add(160);
  EXPECT_FALSE(pool.NextReady(5));
  Add(160);
  block = pool.NextReady(5);
  ASSERT_TRUE(block);
  EXPECT_EQ(block.data[0], static_cast<uint8_t>(480 + 5));
}

TEST_F(Demultiplexer, With32BlocksA640MsBacklogIsKeptAndWhatComesBeyondIsLost) {
  Create(32);
  Add(160 + 40 * 160 + 1);  // nobody takes anything
  CBlockPool& pool = rings.Receive();
  ASSERT_EQ(pool.ReadyCount(9), 32U);
  EXPECT_EQ(pool.FreeCount(9), 0U);
  for (size_t i = 0; i < 32; ++i) {
    const SPoolBlock block = pool.NextReady(9);
    ASSERT_TRUE(block);
    for (size_t byte = 0; byte < 160; ++byte)
      ASSERT_EQ(block.data[byte], static_cast<uint8_t>(160 + 160 * i + byte + 9)) << i;
    pool.PushFree(9);
  }
  Add(160);  // the 20 ms under way have no block yet
  EXPECT_FALSE(pool.NextReady(9));
  Add(160);
  const SPoolBlock next = pool.NextReady(9);
  ASSERT_TRUE(next);
  EXPECT_EQ(next.data[0], static_cast<uint8_t>(42 * 160 + 9));
}

// The lines say nothing but what is given here, one byte a position.
class SteadyLines : public Demultiplexer {
 protected:
  void AddSteady(size_t count, uint8_t byteOf5) {
    std::vector<uint8_t> samples(count * 32, 0xD5);
    for (size_t i = 5; i < samples.size(); i += 32)
      samples[i] = byteOf5;
    demultiplexer.Add(samples.data(), count);
  }
  // Of the oldest block, which goes back.
  std::vector<uint8_t> Take(size_t position, int16_t uniform) {
    const SPoolBlock block = rings.Receive().NextReady(position);
    EXPECT_TRUE(block);
    EXPECT_EQ(block.note->uniform, uniform);
    const std::vector<uint8_t> bytes(block.data, block.data + kBlockBytes);
    rings.Receive().PushFree(position);
    return bytes;
  }
  static std::vector<uint8_t> All(uint8_t byte) { return std::vector<uint8_t>(kBlockBytes, byte); }
};

TEST_F(SteadyLines, ABlockOfEqualBytesSaysSo) {
  Create(2);
  AddSteady(160, 0x11);
  for (const int byte : {0x11, 0x11, 0x12, 0x11, 0x13})
    AddSteady(160, static_cast<uint8_t>(byte));
  for (int block = 0; block < 2; ++block) {  // the later ones found no room
    EXPECT_EQ(Take(4, 0xD5), All(0xD5));
    EXPECT_EQ(Take(5, 0x11), All(0x11));
  }
}

TEST_F(SteadyLines, WhatChangesWithinABlockIsWrittenByteByByte) {
  Create(1);
  AddSteady(160, 0x11);
  AddSteady(100, 0x11);
  AddSteady(60, 0x22);
  AddSteady(1, 0x33);
  std::vector<uint8_t> expected(100, 0x11);
  expected.resize(kBlockBytes, 0x22);
  EXPECT_EQ(Take(5, kNotUniform), expected);
  EXPECT_EQ(Take(6, 0xD5), All(0xD5));
}

TEST_F(SteadyLines, ABlockThatIsKnownToHoldTheByteIsNotWrittenAgain) {
  Create(1);
  AddSteady(320, 0x11);
  AddSteady(1, 0x11);
  const SPoolBlock block = rings.Receive().NextReady(5);
  ASSERT_TRUE(block);
  block.data[7] = 0x44;  // shows who writes
  EXPECT_EQ(Take(5, 0x11)[7], 0x44);
  AddSteady(160, 0x11);
  AddSteady(160, 0x11);
  EXPECT_EQ(Take(5, 0x11)[7], 0x44);
  AddSteady(160, 0x12);
  AddSteady(160, 0x12);
  EXPECT_EQ(Take(5, 0x12), All(0x12));
}

TEST_F(Demultiplexer, TellsARestingPacerWhenBlocksLeaveAndNotBefore) {
  Create(4);
  Add(160);
  EXPECT_EQ(rings.Rest().Moves(), 0U);
  Add(1);
  EXPECT_EQ(rings.Rest().Moves(), 1U);
}

TEST_F(Demultiplexer, WithoutBlocksEverythingIsLost) {
  Create(0);
  Add(1000);
  EXPECT_EQ(rings.Receive().ReadyCount(0), 0U);
}

}  // namespace
}  // namespace zelk
