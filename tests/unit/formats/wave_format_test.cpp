// SPDX-License-Identifier: GPL-2.0-only
#include "formats/wave_format.h"

#include <gtest/gtest.h>

#include <string>

namespace zelk {
namespace {

std::string NameOf(uint16_t tag, uint16_t bits) {
  SWaveFormat record;
  record.formatTag = tag;
  record.bitsPerSample = bits;
  const SSampleFormat* const format = SampleFormatOf(record);
  return format == nullptr ? "" : format->name;
}

TEST(WaveFormat, TheDefaultRecordIsTheLinesOwn) {
  const SWaveFormat record;
  EXPECT_STREQ(SampleFormatOf(record)->name, "ALAW");
  EXPECT_EQ(record.averageBytesPerSecond, record.samplesPerSecond * record.channels * record.bitsPerSample / 8);
}

TEST(WaveFormat, LinearSamplesAreKnownByTagAndWidthTheLawsByTheTagAlone) {
  EXPECT_EQ(NameOf(1, 8), "PCM8");
  EXPECT_EQ(NameOf(1, 16), "PCM16");
  EXPECT_EQ(NameOf(1, 24), "");
  EXPECT_EQ(NameOf(6, 8), "ALAW");
  EXPECT_EQ(NameOf(6, 16), "ALAW");
  EXPECT_EQ(NameOf(7, 8), "MULAW");
  EXPECT_EQ(NameOf(0, 8), "");
  EXPECT_EQ(NameOf(17, 4), "");
}

TEST(WaveFormat, NamesAreFoundInAnyLetterCase) {
  EXPECT_EQ(SampleFormatNamed("MuLaw")->tag, kTagMuLaw);
  EXPECT_EQ(SampleFormatNamed("alaw")->silence, 0xD5);
  EXPECT_EQ(SampleFormatNamed("ALAW "), nullptr);
  EXPECT_EQ(SampleFormatNamed(""), nullptr);
  EXPECT_EQ(SampleFormatNamed(nullptr), nullptr);
}

TEST(WaveFormat, OnlyTheTwoLawsHaveANumber) {
  EXPECT_STREQ(SampleFormatNumbered(1)->name, "MULAW");
  EXPECT_STREQ(SampleFormatNumbered(2)->name, "ALAW");
  EXPECT_EQ(SampleFormatNumbered(0), nullptr);
  EXPECT_EQ(SampleFormatNumbered(3), nullptr);
}

}  // namespace
}  // namespace zelk
