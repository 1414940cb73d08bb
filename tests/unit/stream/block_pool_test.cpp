// SPDX-License-Identifier: GPL-2.0-only
#include "stream/block_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <thread>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

constexpr size_t kPosition = 3;

void Fill(CBlockPool& pool, size_t position, int byte, const SBlockNote& note = {}) {
  const SPoolBlock block = pool.NextFree(position);
  ASSERT_TRUE(block);
  std::memset(block.data, byte, kBlockBytes);
  *block.note = note;
  pool.PushReady(position);
}

bool Holds(const SPoolBlock& block, int byte) {
  return block && std::all_of(block.data, block.data + kBlockBytes, [byte](uint8_t each) { return each == byte; });
}

TEST(BlockPool, AllBlocksOfAllPositionsAreFreeZeroedAndApart) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(kMaxPositions, 5));
  std::map<uint8_t*, size_t> blocks;
  for (size_t position = 0; position < kMaxPositions; ++position) {
    EXPECT_EQ(pool.FreeCount(position), 5U);
    EXPECT_EQ(pool.ReadyCount(position), 0U);
    for (; const SPoolBlock block = pool.NextFree(position); pool.PushReady(position)) {
      EXPECT_TRUE(Holds(block, 0));
      std::memset(block.data, 1, kBlockBytes);
      blocks[block.data] = position;
    }
    EXPECT_EQ(pool.FreeCount(position), 0U);
  }
  EXPECT_EQ(blocks.size(), 5 * kMaxPositions);
  for (auto block = blocks.begin(); std::next(block) != blocks.end(); ++block)
    EXPECT_GE(std::next(block)->first - block->first, ptrdiff_t{kBlockBytes});
}

TEST(BlockPool, ReadyBlocksComeInOrderWithTheirNotes) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 3));
  Fill(pool, kPosition, 7, {7, true, kNotUniform});
  Fill(pool, kPosition, 8, {0xFFFFFFFF, false, 8});
  EXPECT_EQ(pool.ReadyCount(kPosition), 2U);
  SPoolBlock taken = pool.NextReady(kPosition);
  EXPECT_TRUE(Holds(taken, 7));
  EXPECT_TRUE(taken.note->mark);
  EXPECT_EQ(taken.note->uniform, kNotUniform);
  EXPECT_EQ(taken.note->flushCount, 7U);
  pool.PushFree(kPosition);
  taken = pool.NextReady(kPosition);
  EXPECT_TRUE(Holds(taken, 8));
  EXPECT_FALSE(taken.note->mark);
  EXPECT_EQ(taken.note->uniform, 8);
  EXPECT_EQ(taken.note->flushCount, 0xFFFFFFFFU);
  pool.PushFree(kPosition);
  EXPECT_FALSE(pool.NextReady(kPosition));
  EXPECT_EQ(pool.FreeCount(kPosition), 3U);
}

TEST(BlockPool, ABlockIsTheNextOneUntilItIsPushed) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 2));
  EXPECT_EQ(pool.NextFree(kPosition).data, pool.NextFree(kPosition).data);
  Fill(pool, kPosition, 1);
  EXPECT_EQ(pool.NextReady(kPosition).data, pool.NextReady(kPosition).data);
  EXPECT_NE(pool.NextFree(kPosition).data, pool.NextReady(kPosition).data);
}

TEST(BlockPool, OnePositionsRingsLeaveTheOthersAlone) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 2));
  Fill(pool, kPosition, 1);
  Fill(pool, kPosition, 2);
  EXPECT_FALSE(pool.NextFree(kPosition));
  EXPECT_EQ(pool.FreeCount(kPosition + 1), 2U);
  EXPECT_FALSE(pool.NextReady(kPosition - 1));
}

TEST(BlockPool, ABlockKeepsBytesAndNoteWhileItIsFree) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 1));
  Fill(pool, kPosition, 9, {5, false, 9});
  pool.PushFree(kPosition);
  EXPECT_TRUE(Holds(pool.NextFree(kPosition), 9));
  EXPECT_EQ(pool.NextFree(kPosition).note->uniform, 9);
}

TEST(BlockPool, APoolOfNoBlocksGivesNone) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 0));
  EXPECT_FALSE(pool.NextFree(kPosition));
  EXPECT_FALSE(pool.NextReady(kPosition));
  EXPECT_EQ(pool.FreeCount(kPosition), 0U);
}

TEST(BlockPool, WithoutCreationItIsEmpty) {
  CBlockPool pool;
  EXPECT_FALSE(pool.NextFree(kPosition));
  EXPECT_FALSE(pool.NextReady(kPosition));
  EXPECT_EQ(pool.FreeCount(kPosition), 0U);
}

TEST(BlockPool, CreationAgainStartsAnew) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 2));
  Fill(pool, kPosition, 1);
  ASSERT_TRUE(pool.Create(64, 4));
  EXPECT_EQ(pool.FreeCount(kPosition), 4U);
  EXPECT_EQ(pool.ReadyCount(kPosition), 0U);
  EXPECT_TRUE(Holds(pool.NextFree(kPosition), 0));
}

TEST(BlockPool, AfterItsReleaseItIsEmptyAtEveryPosition) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 2));
  for (const size_t position : {size_t{0}, kPosition}) {
    Fill(pool, position, 1);
    Fill(pool, position, 2);
    pool.PushFree(position);
  }
  pool.Release();
  for (const size_t position : {size_t{0}, kPosition}) {
    EXPECT_FALSE(pool.NextFree(position));
    EXPECT_FALSE(pool.NextReady(position));
    EXPECT_EQ(pool.ReadyCount(position), 0U);
    EXPECT_EQ(pool.FreeCount(position), 0U);
  }
}

TEST(BlockPool, AFailedCreationLeavesNothingOfThePoolBefore) {
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 2));
  Fill(pool, 0, 1);
  EXPECT_FALSE(pool.Create(kMaxPositions + 1, 2));
  EXPECT_FALSE(pool.NextFree(0));
  EXPECT_FALSE(pool.NextReady(0));
}

TEST(BlockPool, ASizeThatCannotBeHadFailsAndLeavesAnEmptyPool) {
  CBlockPool pool;
  EXPECT_FALSE(pool.Create(kMaxPositions, 0xFFFFFFFF));
  EXPECT_FALSE(pool.NextFree(kPosition));
  EXPECT_FALSE(pool.Create(kMaxPositions + 1, 1));
  EXPECT_FALSE(pool.NextFree(kPosition));
}

TEST(BlockPool, WithoutMemoryCreationFailsAndLeavesAnEmptyPool) {
  CBlockPool pool;
  bool created = false;
  const uint32_t failures = support::ForEachFailingAllocation([&] { created = pool.Create(32, 3); },
                                                              [&](bool failed) {
                                                                EXPECT_EQ(created, !failed);
                                                                EXPECT_EQ(pool.FreeCount(kPosition), failed ? 0U : 3U);
                                                                EXPECT_EQ(!pool.NextFree(kPosition), failed);
                                                              });
  EXPECT_EQ(failures, 2U);
}

TEST(BlockPool, TheRingsTurnManyTimesWithoutLosingABlock) {
  for (uint32_t count = 1; count < 5; ++count) {
    CBlockPool pool;
    ASSERT_TRUE(pool.Create(32, count));
    for (uint32_t turn = 0; turn < 50; ++turn) {
      for (uint32_t i = 0; i < count; ++i)
        Fill(pool, kPosition, static_cast<int>(turn), {turn * count + i, false, kNotUniform});
      ASSERT_FALSE(pool.NextFree(kPosition));
      ASSERT_EQ(pool.ReadyCount(kPosition), count);
      for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(pool.NextReady(kPosition).note->flushCount, turn * count + i);
        pool.PushFree(kPosition);
      }
    }
  }
}

// Against a queue of what was pushed: the order holds whatever blocks are used for it.
TEST(BlockPool, BlocksComeInTheirOrderWhateverTheTurnsOfFillingAndEmptying) {
  std::mt19937 random(5);
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 6));
  std::deque<uint32_t> waiting;
  uint32_t number = 0;
  for (int turn = 0; turn < 20000; ++turn) {
    if (random() % 100 < (turn % 2000 < 1000 ? 60U : 40U)) {
      ASSERT_EQ(!pool.NextFree(kPosition), waiting.size() == 6) << turn;
      if (waiting.size() < 6) {
        Fill(pool, kPosition, static_cast<int>(number % 251), {number, false, kNotUniform});
        waiting.push_back(number++);
      }
    } else {
      const SPoolBlock block = pool.NextReady(kPosition);
      ASSERT_EQ(!block, waiting.empty()) << turn;
      if (!block)
        continue;
      ASSERT_EQ(block.note->flushCount, waiting.front());
      ASSERT_TRUE(Holds(block, static_cast<int>(waiting.front() % 251)));
      waiting.pop_front();
      pool.PushFree(kPosition);
    }
    ASSERT_EQ(pool.ReadyCount(kPosition), waiting.size());
  }
}

TEST(BlockPool, OneThreadFillsAndOneEmptiesWithoutTearing) {
  constexpr uint32_t kBlocks = 20000;
  CBlockPool pool;
  ASSERT_TRUE(pool.Create(32, 8));
  std::thread filler([&] {
    for (uint32_t n = 0; n < kBlocks;) {
      if (!pool.NextFree(kPosition)) {
        std::this_thread::yield();
        continue;
      }
      Fill(pool, kPosition, static_cast<int>(n % 251), {n, n % 3 == 0, kNotUniform});
      ++n;
    }
  });
  bool whole = true;
  for (uint32_t n = 0; n < kBlocks;) {
    const SPoolBlock block = pool.NextReady(kPosition);
    if (!block) {
      std::this_thread::yield();
      continue;
    }
    whole = whole && block.note->flushCount == n && block.note->mark == (n % 3 == 0) &&
            Holds(block, static_cast<int>(n % 251));
    pool.PushFree(kPosition);
    ++n;
  }
  filler.join();
  EXPECT_TRUE(whole);
  EXPECT_EQ(pool.FreeCount(kPosition), 8U);
}

}  // namespace
}  // namespace zelk
