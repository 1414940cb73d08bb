// SPDX-License-Identifier: GPL-2.0-only
#include "platform/instruction_set.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace zelk {
namespace {

TEST(InstructionSet, PlainAndBaselineCodeRunsOnEveryMachine) {
  EXPECT_TRUE(IsSupported(EInstructionSet::kPlain));
  EXPECT_TRUE(IsSupported(EInstructionSet::kBaseline));
}

TEST(InstructionSet, TheBestOneIsTheLastThatIsSupported) {
  const bool avx2 = IsSupported(EInstructionSet::kAvx2);
  EXPECT_EQ(BestInstructionSet(), avx2 ? EInstructionSet::kAvx2 : EInstructionSet::kBaseline);
}

TEST(InstructionSet, Avx2IsSupportedWhereTheSystemNamesIt) {
  std::ifstream file("/proc/cpuinfo");
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (text.find("flags") == std::string::npos)
    GTEST_SKIP() << "no list of the processor's flags here";
  EXPECT_EQ(IsSupported(EInstructionSet::kAvx2), text.find(" avx2") != std::string::npos);
}

}  // namespace
}  // namespace zelk
