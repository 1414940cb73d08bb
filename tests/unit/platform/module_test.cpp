#include "platform/module.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace zelk {
namespace {

TEST(Module, ThePathIsTheAbsolutePathOfTheFileThatHoldsTheCode) {
  std::string path;
  ASSERT_TRUE(ModulePath(path));
  EXPECT_TRUE(std::filesystem::path(path).is_absolute()) << path;
  EXPECT_TRUE(std::filesystem::is_regular_file(path)) << path;
  EXPECT_EQ(std::filesystem::path(path).stem(), "unit_platform");
}

TEST(Module, ThePathIsAtMost259CharactersAndCarriesTheSystemsSeparator) {
  std::string path;
  ASSERT_TRUE(ModulePath(path));
  EXPECT_LE(path.size(), 259U);
  EXPECT_NE(path.find(kPathSeparator), std::string::npos);
}

}  // namespace
}  // namespace zelk
