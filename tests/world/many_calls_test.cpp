// SPDX-License-Identifier: GPL-2.0-only
#include "world/many_calls.h"

#include <gtest/gtest.h>

namespace world {
namespace {

TEST(ManyCalls, AreExactAndLeaveNothingBehind) {
  const SRunResult result = RunApart([] { return RunManyCalls(1, 20'000); });
  for (const std::string& failure : result.failures) {
    ADD_FAILURE() << failure;
  }
  EXPECT_GE(result.calls, 20'000U);
}

}  // namespace
}  // namespace world
