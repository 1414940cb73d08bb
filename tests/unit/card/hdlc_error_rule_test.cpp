// SPDX-License-Identifier: GPL-2.0-only
#include "card/hdlc_error_rule.h"

#include <gtest/gtest.h>

namespace zelk {
namespace {

struct SCounts {
  int errors = 0;
  int resets = 0;
};

SCounts Feed(CHdlcErrorRule& rule, int errors, uint32_t nowMs, uint8_t lineStatus = 0) {
  SCounts counts;
  for (int i = 0; i < errors; ++i) {
    const EHdlcReport report = rule.OnError(lineStatus, nowMs);
    counts.errors += report == EHdlcReport::kError;
    counts.resets += report == EHdlcReport::kLinkReset;
  }
  return counts;
}

TEST(HdlcErrorRule, NineErrorsAGoodFrameAndNineErrorsAreEighteenReports) {
  CHdlcErrorRule rule;
  SCounts counts = Feed(rule, 9, 0);
  EXPECT_EQ(counts.errors, 9);
  rule.OnGoodFrame();
  counts = Feed(rule, 9, 0);
  EXPECT_EQ(counts.errors, 9);
  EXPECT_EQ(counts.resets, 0);
}

TEST(HdlcErrorRule, TheTenthErrorIsALinkReset) {
  CHdlcErrorRule rule;
  const SCounts counts = Feed(rule, 10, 77);
  EXPECT_EQ(counts.errors, 9);
  EXPECT_EQ(counts.resets, 1);
}

TEST(HdlcErrorRule, FurtherResetsWaitFiveSeconds) {
  CHdlcErrorRule rule;
  Feed(rule, 10, 1000);
  SCounts counts = Feed(rule, 100, 5999);
  EXPECT_EQ(counts.errors + counts.resets, 0);
  counts = Feed(rule, 5, 6000);
  EXPECT_EQ(counts.resets, 1);
  EXPECT_EQ(counts.errors, 0);
  EXPECT_EQ(Feed(rule, 1, 10999).resets, 0);
  EXPECT_EQ(Feed(rule, 1, 11000).resets, 1);
}

TEST(HdlcErrorRule, TheClockMayWrap) {
  CHdlcErrorRule rule;
  Feed(rule, 10, 0xFFFFFF00U);
  EXPECT_EQ(Feed(rule, 1, 4743).resets, 0);
  EXPECT_EQ(Feed(rule, 1, 4744).resets, 1);
}

TEST(HdlcErrorRule, ALineOutOfServiceReportsNothingAndStartsTheCountAnew) {
  CHdlcErrorRule rule;
  Feed(rule, 9, 0);
  for (const uint8_t status : {uint8_t{1}, uint8_t{3}, uint8_t{255}}) {
    const SCounts counts = Feed(rule, 20, 0, status);
    EXPECT_EQ(counts.errors + counts.resets, 0);
  }
  EXPECT_EQ(Feed(rule, 9, 0).errors, 9);
}

TEST(HdlcErrorRule, AGoodFrameAfterAResetLeadsBackToSingleReports) {
  CHdlcErrorRule rule;
  Feed(rule, 30, 0);
  rule.OnGoodFrame();
  const SCounts counts = Feed(rule, 10, 1);
  EXPECT_EQ(counts.errors, 9);
  EXPECT_EQ(counts.resets, 1);
}

}  // namespace
}  // namespace zelk
