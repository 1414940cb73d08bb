// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/q931_types.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(NodeType, TwoClientTypesStandForOthers) {
  EXPECT_EQ(NodeTypeOf(1000), 5);
  EXPECT_EQ(NodeTypeOf(1001), 10);
  for (const int32_t type : {-1, 0, 1, 2, 3, 999, 1002}) {
    EXPECT_EQ(NodeTypeOf(type), type);
  }
}

}  // namespace
}  // namespace zelk
