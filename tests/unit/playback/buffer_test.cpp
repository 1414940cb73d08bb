// SPDX-License-Identifier: GPL-2.0-only
#include "playback/buffer.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/allocation_probe.h"
#include "wave_fixture.h"

namespace zelk {
namespace {

using wavetest::Octets;

TEST(Buffer, IsMadeEmptyAndTakesNothingForNoBytes) {
  CBuffer buffer;
  EXPECT_EQ(buffer.Length(), 0U);
  EXPECT_EQ(buffer.Capacity(), 0U);
  EXPECT_TRUE(buffer.Append(nullptr, 0));
  EXPECT_EQ(buffer.Capacity(), 0U);
}

TEST(Buffer, GrowsByStepsOf80000BytesAndKeepsWhatItHas) {
  CBuffer buffer;
  std::vector<uint8_t> bytes(80000);
  std::iota(bytes.begin(), bytes.end(), uint8_t{0});
  ASSERT_TRUE(buffer.Append(bytes.data(), 80000));
  EXPECT_EQ(buffer.Capacity(), 80000U);
  ASSERT_TRUE(buffer.Append(Octets("x"), 1));
  EXPECT_EQ(buffer.Capacity(), 160000U);
  EXPECT_EQ(buffer.Length(), 80001U);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), buffer.Data()));
  EXPECT_EQ(buffer.Data()[80000], 'x');
}

TEST(Buffer, IsFilledToItsLastByteWithoutAskingForMore) {
  CBuffer buffer;
  const std::vector<uint8_t> bytes(79999, 7);
  ASSERT_TRUE(buffer.Append(bytes.data(), 79999));
  const uint64_t before = support::AllocationCount();
  EXPECT_TRUE(buffer.Append(Octets("x"), 1));
  EXPECT_EQ(support::AllocationCount(), before);
  EXPECT_EQ(buffer.Data()[79999], 'x');
}

TEST(Buffer, KeepsASingleByteWhenItGrows) {
  CBuffer buffer;
  const std::vector<uint8_t> bytes(80000, 7);
  ASSERT_TRUE(buffer.Append(Octets("x"), 1));
  ASSERT_TRUE(buffer.Append(bytes.data(), 80000));
  EXPECT_EQ(buffer.Data()[0], 'x');
}

TEST(Buffer, GrowsSeveralStepsForOneLargePiece) {
  CBuffer buffer;
  const std::vector<uint8_t> bytes(200000, 7);
  ASSERT_TRUE(buffer.Append(bytes.data(), 200000));
  EXPECT_EQ(buffer.Capacity(), 240000U);
}

TEST(Buffer, KeepsItsBytesWhenItCannotGrow) {
  CBuffer buffer;
  const std::vector<uint8_t> bytes(80000, 7);
  ASSERT_TRUE(buffer.Append(bytes.data(), 79999));
  support::FailAllocation(1);
  EXPECT_FALSE(buffer.Append(Octets("ab"), 2));
  support::FailAllocation(0);
  EXPECT_EQ(buffer.Length(), 79999U);
  EXPECT_EQ(buffer.Capacity(), 80000U);
  EXPECT_EQ(buffer.Data()[79998], 7);
  EXPECT_TRUE(buffer.Append(Octets("a"), 1));
  EXPECT_TRUE(buffer.Append(Octets("b"), 1));
  EXPECT_EQ(buffer.Data()[79999], 'a');
  EXPECT_EQ(buffer.Data()[80000], 'b');
}

TEST(Buffer, RefusesMoreThan32BitsCanCountWithoutAsking) {
  CBuffer buffer;
  ASSERT_TRUE(buffer.Append(Octets("abc"), 3));
  const uint64_t before = support::AllocationCount();
  EXPECT_FALSE(buffer.Append(Octets("abc"), 0xFFFFFFFE));
  EXPECT_EQ(support::AllocationCount(), before);
  EXPECT_EQ(buffer.Length(), 3U);
}

}  // namespace
}  // namespace zelk
