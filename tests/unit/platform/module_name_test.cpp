// SPDX-License-Identifier: GPL-2.0-only
#include "platform/module_name.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

TEST(ModuleName, AnAbsoluteNameIsThePath) {
  EXPECT_EQ(ModulePathOf("/opt/z/libZ-64.so", "/home", "/bin/app"), "/opt/z/libZ-64.so");
  EXPECT_EQ(ModulePathOf("/opt/../z/libZ-64.so", "/home", "/bin/app"), "/opt/../z/libZ-64.so");
}

TEST(ModuleName, ARelativeNameCountsFromTheDirectory) {
  EXPECT_EQ(ModulePathOf("./libZ-64.so", "/home/me", "/bin/app"), "/home/me/libZ-64.so");
  EXPECT_EQ(ModulePathOf("lib/libZ-64.so", "/home/me", "/bin/app"), "/home/me/lib/libZ-64.so");
  EXPECT_EQ(ModulePathOf("../libZ-64.so", "/home/me", "/bin/app"), "/home/me/../libZ-64.so");
  EXPECT_EQ(ModulePathOf("./libZ-64.so", "/", "/bin/app"), "/libZ-64.so");
}

TEST(ModuleName, ANameWithoutASeparatorIsTheProgram) {
  EXPECT_EQ(ModulePathOf("app", "/home/me", "/usr/local/bin/app"), "/usr/local/bin/app");
}

TEST(ModuleName, ThePathIsCutTo259Characters) {
  const std::string exact = "/" + std::string(258, 'x');
  EXPECT_EQ(ModulePathOf(exact, "/home", "/bin/app"), exact);
  EXPECT_EQ(ModulePathOf(exact + "y", "/home", "/bin/app"), exact);
  EXPECT_EQ(ModulePathOf("./" + std::string(300, 'x'), "/home", "/bin/app"), "/home/" + std::string(253, 'x'));
  EXPECT_EQ(ModulePathOf("app", "/home", "/" + std::string(300, 'x')), exact);
}

}  // namespace
}  // namespace zelk
