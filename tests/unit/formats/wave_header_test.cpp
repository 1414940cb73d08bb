// SPDX-License-Identifier: GPL-2.0-only
#include "formats/wave_header.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/allocation_probe.h"
#include "support/wav_bytes.h"

namespace zelk {
namespace {

using wav::Bytes;

TEST(ConvertRaw, WritesTheHeaderOverTheFirst44Bytes) {
  Bytes raw(1044);
  for (size_t i = 0; i < raw.size(); ++i) {
    raw[i] = static_cast<uint8_t>(i * 7);
  }
  for (const auto& [type, tag] : {std::pair{1U, 7U}, std::pair{2U, 6U}}) {
    const wav::CTempFile temp(raw);
    EXPECT_EQ(ConvertRawToWaveFile(temp.Path(), type), kErrorNone);
    const Bytes header =
        wav::Join({wav::Text("RIFF"), wav::Number(1036, 4), wav::Text("WAVE"), wav::Text("fmt "), wav::Number(16, 4),
                   wav::Number(tag, 2), wav::Number(1, 2), wav::Number(8000, 4), wav::Number(8000, 4),
                   wav::Number(1, 2), wav::Number(8, 2), wav::Text("data"), wav::Number(1000, 4)});
    ASSERT_EQ(header.size(), 44U);
    EXPECT_EQ(temp.Content(), wav::Join({header, Bytes(raw.begin() + 44, raw.end())}));
  }
}

TEST(ConvertRaw, FileShorterThanTheHeaderGrowsToItWithWrappedSizes) {
  const wav::CTempFile temp(Bytes(10, 0xAA));
  EXPECT_EQ(ConvertRawToWaveFile(temp.Path(), 2), kErrorNone);
  const Bytes content = temp.Content();
  ASSERT_EQ(content.size(), 44U);
  EXPECT_EQ(Bytes(content.begin() + 4, content.begin() + 8), wav::Number(2, 4));
  EXPECT_EQ(Bytes(content.begin() + 40, content.end()), wav::Number(4294967262U, 4));
  const wav::CTempFile empty(Bytes{});
  EXPECT_EQ(ConvertRawToWaveFile(empty.Path(), 1), kErrorNone);
  EXPECT_EQ(empty.Content().size(), 44U);
}

TEST(ConvertRaw, OtherTypesGiveCode7AndLeaveTheFileAlone) {
  for (const uint32_t type : {0U, 3U, 0xFFFFFFFFU}) {
    const wav::CTempFile temp(Bytes(100, 0xAA));
    EXPECT_EQ(ConvertRawToWaveFile(temp.Path(), type), kErrorBadFormat);
    EXPECT_EQ(temp.Content(), Bytes(100, 0xAA));
  }
}

TEST(ConvertRaw, FileThatCannotBeOpenedGivesCode3WhateverTheType) {
  EXPECT_EQ(ConvertRawToWaveFile("/nonexistent/a.raw", 1), kErrorFileOpen);
  EXPECT_EQ(ConvertRawToWaveFile("/nonexistent/a.raw", 9), kErrorFileOpen);
  EXPECT_EQ(ConvertRawToWaveFile(nullptr, 1), kErrorFileOpen);
  EXPECT_FALSE(std::filesystem::exists("/nonexistent/a.raw"));
}

TEST(ConvertRaw, WriteThatFailsGivesCode5) {
  // A kernel setting that takes a number and nothing else: it opens for writing and refuses the header.
  const char* const refusing = "/proc/self/oom_score_adj";
  if (!std::ofstream(refusing)) {
    GTEST_SKIP() << "no file at hand that refuses a write";
  }
  EXPECT_EQ(ConvertRawToWaveFile(refusing, 1), kErrorFileWrite);
}

TEST(ConvertRaw, WithoutMemoryGivesACodeAndNotAnException) {
  const wav::CTempFile raw(Bytes(100, 0xAA));
  uint32_t result = 99;
  support::ForEachFailingAllocation(
      [&] { result = ConvertRawToWaveFile(raw.Path(), 1); },
      [&result](bool failed) { EXPECT_EQ(result, failed ? kErrorFileOpen : kErrorNone); });
}

}  // namespace
}  // namespace zelk
