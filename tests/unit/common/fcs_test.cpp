// SPDX-License-Identifier: GPL-2.0-only
#include "common/fcs.h"

#include <gtest/gtest.h>

#include <string_view>

namespace tool {
namespace {

ByteView View(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// The check value of CRC-16/X.25 in the catalogues of CRC parameters.
TEST(Fcs, OfTheCheckStringIsTheCatalogueValue) {
  EXPECT_EQ(FrameCheckSequence(View("123456789")), 0x906E);
}

TEST(Fcs, OfNothingIsZero) {
  EXPECT_EQ(FrameCheckSequence({}), 0);
}

// A receiver that runs the FCS through as well ends with the constant remainder 0xF0B8 (complemented here).
TEST(Fcs, OfAFrameWithItsFcsIsTheConstantRemainder) {
  Bytes frame{0x02, 0x01, 0x7F};
  const std::uint16_t fcs = FrameCheckSequence(frame);
  frame.push_back(static_cast<std::uint8_t>(fcs & 0xFF));
  frame.push_back(static_cast<std::uint8_t>(fcs >> 8));
  EXPECT_EQ(FrameCheckSequence(frame), 0xF0B8 ^ 0xFFFF);
}

}  // namespace
}  // namespace tool
