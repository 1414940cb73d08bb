// SPDX-License-Identifier: GPL-2.0-only
#include "api/guard.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace zelk {
namespace {

class Guard : public ::testing::Test {
 protected:
  Guard() : card(0) { Library().Channels().Add(std::make_unique<CDevice>(card, SDevicePlace{0, 0, 1, 0})); }
  ~Guard() override { Library().Channels().Clear(); }

  CCard card;
};

TEST_F(Guard, WhateverIsThrownBecomesTheFailureValue) {
  EXPECT_EQ(Guarded(7, []() -> int { throw std::bad_alloc(); }), 7);
  EXPECT_EQ(Guarded(7, []() -> int { throw 1; }), 7);
  EXPECT_EQ(Guarded(7, [] { return 8; }), 8);
  bool reached = false;
  Guarded([&reached] {
    reached = true;
    throw std::runtime_error("x");
  });
  EXPECT_TRUE(reached);
}

TEST_F(Guard, ChannelsLastErrorIsClearedBeforeTheBodyRuns) {
  CDevice& device = *Library().Channels().Find(0);
  device.SetLastError(5);
  EXPECT_EQ(ForChannel(0, -1, [](CDevice& found) { return static_cast<int>(found.LastError()); }), 0);
  device.SetLastError(5);
  EXPECT_EQ(ForChannel(0, -1, [](CDevice&) -> int { throw 1; }), -1);
  EXPECT_EQ(device.LastError(), 0U);
}

TEST_F(Guard, BodyDoesNotRunWithoutAChannel) {
  for (const int32_t channel : {-1, 1, 1023, 1024}) {
    bool ran = false;
    EXPECT_EQ(ForChannel(channel, -1,
                         [&ran](CDevice&) {
                           ran = true;
                           return 1;
                         }),
              -1);
    EXPECT_FALSE(ran) << channel;
  }
}

}  // namespace
}  // namespace zelk
