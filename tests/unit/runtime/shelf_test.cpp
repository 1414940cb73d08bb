// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/shelf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace zelk {
namespace {

TEST(Shelf, PlacesStandSideBySideInTheOrderOfTaking) {
  CShelf<128, 3> shelf;
  auto* const first = static_cast<std::byte*>(shelf.Take());
  EXPECT_EQ(shelf.Take(), first + 128);
  EXPECT_EQ(shelf.Take(), first + 256);
  EXPECT_EQ(shelf.Take(), nullptr);
}

TEST(Shelf, TheFirstPlaceThatCameBackIsTakenNext) {
  CShelf<64, 4> shelf;
  std::vector<void*> places;
  for (int i = 0; i < 4; ++i)
    places.push_back(shelf.Take());
  EXPECT_TRUE(shelf.Return(places[3]));
  EXPECT_TRUE(shelf.Return(places[1]));
  EXPECT_EQ(shelf.Take(), places[1]);
  EXPECT_EQ(shelf.Take(), places[3]);
  EXPECT_EQ(shelf.Take(), nullptr);
}

TEST(Shelf, MemoryFromElsewhereIsNotTakenBack) {
  CShelf<64, 2> shelf;
  int elsewhere = 0;
  EXPECT_FALSE(shelf.Return(&elsewhere));
  EXPECT_FALSE(shelf.Return(nullptr));
}

TEST(Shelf, NoPlaceIsGivenToTwo) {
  CShelf<64, 8> shelf;
  std::atomic<int> twice{0};
  const auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      auto* const place = static_cast<std::atomic<int>*>(shelf.Take());
      if (place == nullptr)
        continue;
      twice += place->exchange(1) != 0 ? 1 : 0;
      place->store(0);
      shelf.Return(place);
    }
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(twice, 0);
}

}  // namespace
}  // namespace zelk
