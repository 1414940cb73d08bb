// SPDX-License-Identifier: GPL-2.0-only
#include "world/shrink.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace world {
namespace {

TEST(Shrink, LeavesWhatTheFailureNeeds) {
  const SWorldPlan whole = DrawPlan(3);
  ASSERT_GT(whole.faults.size(), 10U);
  const int64_t first = whole.faults[3].atMs;
  const int64_t second = whole.faults[9].atMs;
  const auto has = [](const SWorldPlan& plan, int64_t atMs) {
    return std::any_of(plan.faults.begin(), plan.faults.end(), [&](const SFault& fault) { return fault.atMs == atMs; });
  };
  const SWorldPlan small = Shrink(
      whole, [&](const SWorldPlan& plan) { return has(plan, first) && has(plan, second) && !plan.steps.empty(); });
  EXPECT_EQ(2U, small.faults.size());
  EXPECT_TRUE(has(small, first) && has(small, second));
  EXPECT_EQ(0U, small.offers.size());
  EXPECT_EQ(1U, small.steps.size());
}

}  // namespace
}  // namespace world
