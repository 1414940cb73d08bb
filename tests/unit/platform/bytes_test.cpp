// SPDX-License-Identifier: GPL-2.0-only
#include "platform/bytes.h"

#include <gtest/gtest.h>

#include <array>

namespace zelk {
namespace {

TEST(Bytes, NumbersAreReadLowByteFirstAtAnyAddress) {
  const std::array<uint8_t, 6> bytes{0x99, 0x12, 0x34, 0x56, 0xF8, 0x99};
  EXPECT_EQ(ReadLittle16(&bytes[1]), 0x3412);
  EXPECT_EQ(ReadLittle32(&bytes[1]), 0xF8563412U);
}

TEST(Bytes, NumbersAreWrittenLowByteFirstAndNoFurther) {
  std::array<uint8_t, 8> bytes{};
  bytes.fill(0x99);
  WriteLittle16(&bytes[1], 0x3412);
  WriteLittle32(&bytes[3], 0xF8563412U);
  EXPECT_EQ(bytes, (std::array<uint8_t, 8>{0x99, 0x12, 0x34, 0x12, 0x34, 0x56, 0xF8, 0x99}));
}

}  // namespace
}  // namespace zelk
