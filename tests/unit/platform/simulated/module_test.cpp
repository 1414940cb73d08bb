// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(SimulatedModule, IsAlwaysAtTheSamePlace) {
  std::string path;
  EXPECT_TRUE(ModulePath(path));
  EXPECT_EQ(path, "/world/libZelkApi-64.so");
  EXPECT_EQ(kPathSeparator, '/');
}

}  // namespace
}  // namespace zelk
