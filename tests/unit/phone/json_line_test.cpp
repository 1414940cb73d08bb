// SPDX-License-Identifier: GPL-2.0-only
#include "phone/json_line.h"

#include <gtest/gtest.h>

namespace phone {
namespace {

UtcTime At(int64_t ms) {
  return UtcTime(std::chrono::duration_cast<UtcTime::duration>(std::chrono::milliseconds(ms)));
}

TEST(JsonLine, TimesAreUtcInMilliseconds) {
  EXPECT_EQ(IsoTime(At(0)), "1970-01-01T00:00:00.000Z");
  // Ten minutes and a bit into a leap day.
  EXPECT_EQ(IsoTime(At(1709165403007)), "2024-02-29T00:10:03.007Z");
  EXPECT_EQ(IsoTime(At(1767225599999)), "2025-12-31T23:59:59.999Z");
}

TEST(JsonLine, TypeAndTimeStandFirstAndFieldsKeepTheirOrder) {
  EXPECT_EQ(JsonLine("digit", At(0), {{"zebra", 1}, {"ape", nullptr}}),
            R"({"type":"digit","time":"1970-01-01T00:00:00.000Z","zebra":1,"ape":null})");
}

TEST(JsonLine, IsAsciiWithoutLineEndsWhateverTheTextHolds) {
  EXPECT_EQ(JsonLine("x", At(0), {{"a", "\n\"\xC3\xA4\xFF"}}),
            R"({"type":"x","time":"1970-01-01T00:00:00.000Z","a":"\n\"\u00e4\ufffd"})");
}

TEST(JsonLine, BytesOfTheLineAreCharactersOfTheirNumber) {
  EXPECT_EQ(TextOfLine("030\xE4\x80"), "030\xC3\xA4\xC2\x80");
}

}  // namespace
}  // namespace phone
