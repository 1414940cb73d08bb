#include "platform/adapters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "platform/socket.h"

namespace zelk {
namespace {

TEST(Adapters, TheListIsReadAndReplacesWhatWasThere) {
  std::vector<SAdapter> adapters{{1, 2}, {3, 4}};
  ASSERT_EQ(ListAdapters(adapters), kAdaptersListed);
  for (const SAdapter& adapter : adapters) {
    EXPECT_NE(adapter.address, 1U);
    EXPECT_NE(adapter.mask, 2U);
  }
}

TEST(Adapters, LoopbackIsListedLastWithItsMask) {
  std::vector<SAdapter> adapters;
  ASSERT_EQ(ListAdapters(adapters), kAdaptersListed);
  ASSERT_FALSE(adapters.empty());
  EXPECT_EQ(FormatIpv4(adapters.back().address), "127.0.0.1");
  EXPECT_EQ(FormatIpv4(adapters.back().mask), "255.0.0.0");
}

TEST(Adapters, NoAddressIsListedTwice) {
  std::vector<SAdapter> adapters;
  ASSERT_EQ(ListAdapters(adapters), kAdaptersListed);
  std::set<uint32_t> seen;
  for (const SAdapter& adapter : adapters) {
    EXPECT_TRUE(seen.insert(adapter.address).second) << FormatIpv4(adapter.address);
  }
}

}  // namespace
}  // namespace zelk
