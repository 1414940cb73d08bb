// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/format.h"

#include <gtest/gtest.h>

#include <new>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

TEST(FormatString, FormatsLikePrintf) {
  std::string text;
  FormatString(text, "%s %d %04X %3u%%", "a", -1, 0xAB, 7U);
  EXPECT_EQ(text, "a -1 00AB   7%");
}

TEST(FormatString, ReplacesTheContent) {
  std::string text = "something longer than the result";
  FormatString(text, "%s", "x");
  EXPECT_EQ(text, "x");
  FormatString(text, "%s", "");
  EXPECT_EQ(text, "");
}

TEST(FormatString, GrowsAtEveryStepOfTheScratchBuffer) {
  std::string text;
  for (const size_t step : {2048U, 6144U, 12288U, 20480U, 30720U, 43008U}) {
    for (const size_t length : {step - 1, step}) {
      const std::string content(length, 'x');
      FormatString(text, "%s", content.c_str());
      ASSERT_EQ(text, content) << length;
    }
  }
  const std::string content(2049, 'y');
  FormatString(text, "%s", content.c_str());
  EXPECT_EQ(text, content);
}

TEST(FormatString, CutsAt43008Characters) {
  std::string text;
  FormatString(text, "%s!", std::string(43008, 'x').c_str());
  EXPECT_EQ(text, std::string(43008, 'x'));
  FormatString(text, "%s", std::string(1'000'000, 'x').c_str());
  EXPECT_EQ(text.size(), kMaxFormattedChars);
}

TEST(FormatString, AnArgumentMayBeTheTargetItself) {
  for (const size_t length : {10U, 3000U}) {
    std::string text(length, 'x');
    FormatString(text, "<%s>", text.c_str());
    EXPECT_EQ(text, "<" + std::string(length, 'x') + ">");
  }
}

TEST(FormatString, WithoutMemoryTheTargetStaysAsItWas) {
  const std::string argument(3000, 'x');
  std::string text = "before";
  bool formatted = false;
  for (uint32_t n = 1; !formatted; ++n) {
    support::FailAllocation(n);
    try {
      FormatString(text, "%s", argument.c_str());
      formatted = true;
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(text, "before");
    }
    support::FailAllocation(0);
    EXPECT_TRUE(formatted || n < 10);
  }
  EXPECT_EQ(text, argument);
}

}  // namespace
}  // namespace zelk
