// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_dir.h"

namespace zelk {
namespace {

TEST(Module, ThePathIsTheAbsolutePathOfTheFileThatHoldsTheCode) {
  std::string path;
  ASSERT_TRUE(ModulePath(path));
  EXPECT_TRUE(std::filesystem::path(path).is_absolute()) << path;
  EXPECT_TRUE(std::filesystem::is_regular_file(path)) << path;
  EXPECT_EQ(std::filesystem::path(path).stem(), "unit_platform");
  EXPECT_NE(path.find(kPathSeparator), std::string::npos);
}

TEST(Module, ThePathStaysTheSameInAnotherDirectory) {
  const CTempDir elsewhere;
  const std::filesystem::path here = std::filesystem::current_path();
  std::string before;
  std::string after;
  ASSERT_TRUE(ModulePath(before));
  std::filesystem::current_path(elsewhere.Path());
  EXPECT_TRUE(ModulePath(after));
  std::filesystem::current_path(here);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace zelk
