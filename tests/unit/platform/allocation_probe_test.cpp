// SPDX-License-Identifier: GPL-2.0-only
#include "support/allocation_probe.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>

namespace {

// Kept beyond the test, so that the compiler cannot do without the allocation.
std::unique_ptr<int> number;
std::unique_ptr<char[]> text;

}  // namespace

TEST(AllocationProbe, CountsAndFailsTheAllocationAskedFor) {
  const uint64_t before = support::AllocationCount();
  text.reset(new (std::nothrow) char[10]);
  EXPECT_EQ(support::AllocationCount(), before + 1);
  support::FailAllocation(2);
  text.reset(new (std::nothrow) char[10]);
  EXPECT_NE(text, nullptr);
  EXPECT_FALSE(support::AllocationFailed());
  EXPECT_THROW(number = std::make_unique<int>(1), std::bad_alloc);
  EXPECT_TRUE(support::AllocationFailed());
  EXPECT_NO_THROW(number = std::make_unique<int>(1));
}
