// SPDX-License-Identifier: GPL-2.0-only
#include "platform/adapters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "support/addresses.h"

namespace zelk {
namespace {

TEST(Adapters, TheListIsReadAndReplacesWhatWasThere) {
  std::vector<SAdapter> adapters{{Address("0.0.0.1"), Address("0.0.0.2")}};
  ASSERT_EQ(ListAdapters(adapters), kAdaptersListed);
  for (const SAdapter& adapter : adapters) {
    EXPECT_NE(adapter.address, Address("0.0.0.1"));
    EXPECT_NE(adapter.mask, Address("0.0.0.2"));
  }
}

TEST(Adapters, LoopbackIsListedLastWithItsMask) {
  std::vector<SAdapter> adapters;
  ASSERT_EQ(ListAdapters(adapters), kAdaptersListed);
  ASSERT_FALSE(adapters.empty());
  EXPECT_EQ(adapters.back().address, Address("127.0.0.1"));
  EXPECT_EQ(adapters.back().mask, Address("255.0.0.0"));
}

TEST(Adapters, NoAddressIsListedTwice) {
  std::vector<SAdapter> adapters;
  ASSERT_EQ(ListAdapters(adapters), kAdaptersListed);
  std::set<std::string> seen;
  for (const SAdapter& adapter : adapters) {
    EXPECT_TRUE(seen.insert(TextOf(adapter.address)).second) << TextOf(adapter.address);
  }
}

}  // namespace
}  // namespace zelk
