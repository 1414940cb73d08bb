// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/large_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace zelk {
namespace {

bool IsZero(const uint8_t* bytes, size_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

TEST(LargeMemory, IsZeroedAndCanBeWrittenFromEndToEnd) {
  for (size_t pages = 1; pages <= 3; ++pages) {
    const size_t bytes = pages * kLargePageBytes;
    auto* const memory = static_cast<uint8_t*>(TakeLargeMemory(bytes));
    ASSERT_NE(memory, nullptr);
    EXPECT_TRUE(IsZero(memory, bytes));
    std::memset(memory, 0xA5, bytes);
    GiveLargeMemory(memory, bytes);
  }
}

TEST(LargeMemory, WhatIsNotThereIsNull) {
  EXPECT_EQ(TakeLargeMemory(size_t{1} << 60), nullptr);
}

TEST(LargeBytes, AreZeroedWhereverTheyComeFrom) {
  CLargeBytes bytes;
  EXPECT_EQ(bytes.Data(), nullptr);
  for (const size_t count :
       {size_t{0}, size_t{1000}, kLargePageBytes / 2 - 1, kLargePageBytes / 2, kLargePageBytes + 1}) {
    ASSERT_TRUE(bytes.Create(count));  // in the place of those before
    EXPECT_TRUE(IsZero(bytes.Data(), count));
    std::memset(bytes.Data(), 0xA5, count);
  }
  bytes.Release();
  EXPECT_EQ(bytes.Data(), nullptr);
}

TEST(LargeBytes, AreNoneWithoutMemory) {
  CLargeBytes bytes;
  ASSERT_TRUE(bytes.Create(1000));
  EXPECT_FALSE(bytes.Create(size_t{1} << 60));
  EXPECT_EQ(bytes.Data(), nullptr);
  EXPECT_TRUE(bytes.Create(1000));
}

}  // namespace
}  // namespace zelk
