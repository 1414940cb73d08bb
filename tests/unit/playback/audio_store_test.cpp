// SPDX-License-Identifier: GPL-2.0-only
#include "playback/audio_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

constexpr bool kUsesSlabs = !kMemoryIsWatched;

// Pieces that are full of a byte of their own, so that any two that overlap show it.
class CPieces {
 public:
  explicit CPieces(CAudioStore& audioStore) : store(audioStore) {}
  ~CPieces() {
    while (!pieces.empty())
      Return(pieces.size() - 1);
  }

  void Take(size_t bytes) {
    auto* const memory = static_cast<uint8_t*>(store.Take(bytes));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % 16, 0U);
    std::memset(memory, ++mark, bytes);
    pieces.push_back({memory, bytes, mark});
  }
  void Return(size_t index) {
    const SPiece piece = pieces[index];
    EXPECT_TRUE(
        std::all_of(piece.memory, piece.memory + piece.bytes, [&](uint8_t byte) { return byte == piece.mark; }));
    store.Return(piece.memory);
    pieces[index] = pieces.back();
    pieces.pop_back();
  }
  size_t Count() const { return pieces.size(); }

 private:
  struct SPiece {
    uint8_t* memory;
    size_t bytes;
    uint8_t mark;
  };

  CAudioStore& store;
  std::vector<SPiece> pieces;
  uint8_t mark = 0;
};

TEST(AudioStore, FewPiecesComeFromTheHeapAndManyFromSlabs) {
  CAudioStore store;
  CPieces pieces(store);
  for (uint32_t i = 0; i < CAudioStore::kFew; ++i)
    pieces.Take(4096);
  EXPECT_EQ(store.SlabCount(), 0U);
  pieces.Take(4096);
  EXPECT_EQ(store.SlabCount(), kUsesSlabs ? 1U : 0U);
  for (int i = 0; i < 300; ++i)
    pieces.Take(4096);
  EXPECT_EQ(store.SlabCount(), kUsesSlabs ? 1U : 0U);
  for (int i = 0; i < 300; ++i)
    pieces.Take(4096);
  EXPECT_EQ(store.SlabCount(), kUsesSlabs ? 2U : 0U);
}

TEST(AudioStore, AnEmptySlabIsKeptUntilNothingIsQueued) {
  CAudioStore store;
  {
    CPieces pieces(store);
    for (int i = 0; i < 2000; ++i)
      pieces.Take(8000);
    EXPECT_GE(store.SlabCount(), kUsesSlabs ? 8U : 0U);
    while (pieces.Count() > 1)
      pieces.Return(pieces.Count() - 1);
    EXPECT_LE(store.SlabCount(), 1U);
  }
  EXPECT_EQ(store.SlabCount(), 0U);
}

TEST(AudioStore, PiecesOfAllSizesComeAndGoWithoutTouchingEachOther) {
  CAudioStore store;
  std::mt19937 random(3);
  {
    CPieces pieces(store);
    for (int i = 0; i < 20000; ++i) {
      const bool isMany = pieces.Count() > 400;
      if (pieces.Count() == 0 || (!isMany && random() % 2 == 0))
        pieces.Take(random() % (size_t{1} << random() % 17));
      else
        pieces.Return(random() % pieces.Count());
    }
  }
  EXPECT_EQ(store.SlabCount(), 0U);
}

TEST(AudioStore, OnesThatNoSlabHoldsComeFromTheHeap) {
  CAudioStore store;
  CPieces pieces(store);
  for (uint32_t i = 0; i < CAudioStore::kFew; ++i)
    pieces.Take(1);
  pieces.Take(kLargePageBytes);
  EXPECT_EQ(store.SlabCount(), 0U);
  pieces.Take(kLargePageBytes - 1024);
  EXPECT_EQ(store.SlabCount(), kUsesSlabs ? 1U : 0U);
}

TEST(AudioStore, WithoutMemoryThereIsNoPieceAndNothingIsCounted) {
  CAudioStore store;
  support::FailAllocation(1);
  EXPECT_EQ(store.Take(100), nullptr);
  EXPECT_TRUE(support::AllocationFailed());
  EXPECT_EQ(store.Take(SIZE_MAX), nullptr);
  CPieces pieces(store);
  for (uint32_t i = 0; i < CAudioStore::kFew; ++i)
    pieces.Take(100);
  EXPECT_EQ(store.SlabCount(), 0U);
}

TEST(AudioStore, PiecesMayComeBackFromAnotherThread) {
  CAudioStore store;
  const auto work = [&store](uint32_t seed) {
    std::mt19937 random(seed);
    CPieces pieces(store);
    for (int i = 0; i < 5000; ++i) {
      if (pieces.Count() < 100)
        pieces.Take(random() % 5000);
      else
        pieces.Return(random() % pieces.Count());
    }
  };
  std::thread other(work, 1);
  work(2);
  other.join();
  void* const taken = store.Take(1000);
  std::thread giver([&] { store.Return(taken); });
  giver.join();
  EXPECT_EQ(store.SlabCount(), 0U);
}

}  // namespace
}  // namespace zelk
