// SPDX-License-Identifier: GPL-2.0-only
#include "world/scarce_life.h"

#include <gtest/gtest.h>

#include <iostream>

namespace world {
namespace {

// So many calls are there when nothing fails.
constexpr uint64_t kCallsOfTwoLives = 4;

SRunResult LifeApart(const SScarceAllocations& failing) {
  return RunApart([failing] { return RunScarceLife(1, failing); });
}

// Each allocation of a life is the first that fails, in a world of its own.
class ScarceLife : public testing::TestWithParam<uint32_t> {};

TEST_P(ScarceLife, ALibraryThatWasOutOfMemoryLivesAgain) {
  const SRunResult whole = LifeApart({UINT32_MAX, 1});
  ASSERT_TRUE(whole.failures.empty()) << whole.failures.front();
  EXPECT_EQ(whole.calls, kCallsOfTwoLives);
  uint64_t harmed = 0;
  for (uint32_t first = 1; first <= whole.allocations; ++first) {
    const SRunResult result = LifeApart({first, GetParam()});
    for (const std::string& failure : result.failures) {
      ADD_FAILURE() << "allocation " << first << ": " << failure;
    }
    harmed += result.calls < kCallsOfTwoLives ? 1 : 0;
  }
  EXPECT_GT(harmed, 0U);
  std::cout << whole.allocations << " lives, " << harmed << " of them with a call less\n";
}

// Once, for a while, and for the rest of the life.
INSTANTIATE_TEST_SUITE_P(InARow, ScarceLife, testing::Values(1, 20, UINT32_MAX), testing::PrintToStringParamName());

}  // namespace
}  // namespace world
