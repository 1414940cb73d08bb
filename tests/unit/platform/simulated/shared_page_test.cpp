// SPDX-License-Identifier: GPL-2.0-only
#include "platform/memory/shared_page.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(SharedPage, AWorldHasNone) {
  CSharedPage page;
  EXPECT_FALSE(page.Map("/p", 1000));
  EXPECT_EQ(page.Data(), nullptr);
  page.Leave();
  EXPECT_NE(OwnProcessNumber(), 0U);
}

}  // namespace
}  // namespace zelk
