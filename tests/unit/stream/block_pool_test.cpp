// SPDX-License-Identifier: GPL-2.0-only
#include "stream/block_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <thread>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

TEST(BlockPool, AllBlocksAreFreeZeroedAndApart) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(5, 160));
  EXPECT_EQ(pool.FreeCount(), 5U);
  EXPECT_EQ(pool.ReadyCount(), 0U);
  EXPECT_EQ(pool.BlockBytes(), 160U);
  std::set<uint8_t*> blocks;
  while (uint8_t* block = pool.PopFree()) {
    EXPECT_TRUE(std::all_of(block, block + 160, [](uint8_t byte) { return byte == 0; }));
    for (const uint8_t* other : blocks)
      EXPECT_GE(std::abs(block - other), 160);
    blocks.insert(block);
    std::memset(block, 1, 160);
  }
  EXPECT_EQ(blocks.size(), 5U);
  EXPECT_EQ(pool.FreeCount(), 0U);
}

TEST(BlockPool, ReadyBlocksComeInOrderWithTheirMarkAndTag) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(3, 161));  // odd sizes too: the mark needs even addresses
  uint8_t* const first = pool.PopFree();
  uint8_t* const second = pool.PopFree();
  pool.PushReady(first, true, 7);
  pool.PushReady(second, false, 0xFFFFFFFF);
  EXPECT_EQ(pool.ReadyCount(), 2U);
  SReadyBlock taken = pool.PopReady();
  EXPECT_EQ(taken.data, first);
  EXPECT_TRUE(taken.mark);
  EXPECT_EQ(taken.tag, 7U);
  taken = pool.PopReady();
  EXPECT_EQ(taken.data, second);
  EXPECT_FALSE(taken.mark);
  EXPECT_EQ(taken.tag, 0xFFFFFFFFU);
  EXPECT_EQ(pool.PopReady().data, nullptr);
  pool.PushFree(first);
  EXPECT_EQ(pool.FreeCount(), 2U);
}

TEST(BlockPool, APoolOfNoBlocksGivesNone) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(0, 160));
  EXPECT_EQ(pool.PopFree(), nullptr);
  EXPECT_EQ(pool.PopReady().data, nullptr);
  EXPECT_EQ(pool.FreeCount(), 0U);
}

TEST(BlockPool, WithoutCreationItIsEmpty) {
  CBlockPool pool;
  EXPECT_EQ(pool.PopFree(), nullptr);
  EXPECT_EQ(pool.PopReady().data, nullptr);
  EXPECT_EQ(pool.FreeCount(), 0U);
}

TEST(BlockPool, CreationAgainStartsAnew) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(2, 16));
  pool.PushReady(pool.PopFree(), false, 0);
  ASSERT_TRUE(pool.Create(4, 32));
  EXPECT_EQ(pool.FreeCount(), 4U);
  EXPECT_EQ(pool.ReadyCount(), 0U);
}

TEST(BlockPool, ASizeThatCannotBeHadFailsAndLeavesAnEmptyPool) {
  CBlockPool pool;
  EXPECT_FALSE(pool.Create(0xFFFFFFFF, 160));
  EXPECT_EQ(pool.PopFree(), nullptr);
}

TEST(BlockPool, WithoutMemoryCreationFailsAndLeavesAnEmptyPool) {
  CBlockPool pool;
  bool created = false;
  const uint32_t failures = support::ForEachFailingAllocation([&] { created = pool.Create(3, 16); },
                                                              [&](bool failed) {
                                                                EXPECT_EQ(created, !failed);
                                                                EXPECT_EQ(pool.FreeCount(), failed ? 0U : 3U);
                                                                EXPECT_EQ(pool.PopFree() == nullptr, failed);
                                                              });
  EXPECT_EQ(failures, 3U);
}

TEST(BlockPool, TheRingsTurnManyTimesWithoutLosingABlock) {
  for (uint32_t count = 1; count < 5; ++count) {
    CBlockPool pool;
    ASSERT_TRUE(pool.Create(count, 2));
    for (uint32_t turn = 0; turn < 50; ++turn) {
      for (uint32_t i = 0; i < count; ++i) {
        uint8_t* block = pool.PopFree();
        ASSERT_NE(block, nullptr);
        pool.PushReady(block, false, turn * count + i);
      }
      ASSERT_EQ(pool.PopFree(), nullptr);
      ASSERT_EQ(pool.ReadyCount(), count);
      for (uint32_t i = 0; i < count; ++i) {
        const SReadyBlock block = pool.PopReady();
        ASSERT_EQ(block.tag, turn * count + i);
        pool.PushFree(block.data);
      }
    }
  }
}

TEST(BlockPool, OneThreadFillsAndOneEmptiesWithoutTearing) {
  constexpr uint32_t kBlocks = 20000;
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(8, 64));
  std::thread filler([&] {
    for (uint32_t n = 0; n < kBlocks;) {
      uint8_t* block = pool.PopFree();
      if (block == nullptr) {
        std::this_thread::yield();
        continue;
      }
      std::memset(block, static_cast<int>(n % 251), 64);
      pool.PushReady(block, n % 3 == 0, n);
      ++n;
    }
  });
  bool whole = true;
  for (uint32_t n = 0; n < kBlocks;) {
    const SReadyBlock block = pool.PopReady();
    if (block.data == nullptr) {
      std::this_thread::yield();
      continue;
    }
    whole = whole && block.tag == n && block.mark == (n % 3 == 0) &&
            std::all_of(block.data, block.data + 64, [&](uint8_t byte) { return byte == n % 251; });
    pool.PushFree(block.data);
    ++n;
  }
  filler.join();
  EXPECT_TRUE(whole);
  EXPECT_EQ(pool.FreeCount(), 8U);
}

}  // namespace
}  // namespace zelk
