// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <chrono>

#include "card/card.h"
#include "support/adapters.h"
#include "support/addresses.h"

namespace zelk {
namespace {

TEST(CardConnect, WhereNothingAnswersAnOpenCostsItsFourWaits) {
  ZELK_NEEDS_OWN_NETWORK();
  support::MakeAdapter("a0", {"10.1.1.1/24"});
  CCard card(0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(card.Open(Address("10.1.1.77"), 5854, Address("10.1.1.1")));
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took, std::chrono::milliseconds(4900)) << "a connection that is still pending after its wait is no failure";
  EXPECT_LT(took, std::chrono::seconds(7));
  EXPECT_EQ(card.SerialNumber(), 0U);
}

}  // namespace
}  // namespace zelk
