// SPDX-License-Identifier: GPL-2.0-only
#include "formats/sample_format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "support/allocation_probe.h"

namespace zelk {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array<const char*, 4> kNames = {"PCM16", "PCM8", "ALAW", "MULAW"};

size_t WidthOf(const std::string& name) {
  return name == "PCM16" ? 2 : 1;
}

// The laws as ITU-T G.711 lays them out in segments and steps, with no table and no bit of the product's.
int ALawValue(int code) {
  const int bits = code ^ 0x55;
  const int segment = bits / 16 % 8;
  const int step = bits % 16;
  const int first = segment < 2 ? segment * 256 : 256 << (segment - 1);
  const int width = segment < 2 ? 16 : 16 << (segment - 1);
  const int middle = first + step * width + width / 2;
  return bits >= 128 ? middle : -middle;
}

int MuLawValue(int code) {
  const int bits = 255 - code;
  const int segment = bits / 16 % 8;
  const int value = (33 + 2 * (bits % 16)) * (1 << segment) - 33;  // in units of 4
  return 4 * (bits >= 128 ? -value : value);
}

// The code whose decision interval holds the sample. -32768 keeps its sign in 16 bits and so codes as the least value.
int ALawCode(int sample) {
  if (sample == -32768) {
    return 0x55;
  }
  const int magnitude = std::min(sample < 0 ? -sample : sample, 32635);
  int segment = 7;
  while (segment > 0 && magnitude < (256 << (segment - 1))) {
    --segment;
  }
  const int first = segment == 0 ? 0 : 256 << (segment - 1);
  const int width = segment < 2 ? 16 : 16 << (segment - 1);
  return (segment * 16 + (magnitude - first) / width + (sample >= 0 ? 128 : 0)) ^ 0x55;
}

int MuLawCode(int sample) {
  if (sample == -32768) {
    return 0x7F;
  }
  const int biased = std::min(sample < 0 ? -sample : sample, 32635) + 132;
  int segment = 7;
  while (segment > 0 && biased < (128 << segment)) {
    --segment;
  }
  const int step = (biased - (128 << segment)) / (8 << segment);
  return 255 - (segment * 16 + step + (sample < 0 ? 128 : 0));
}

int ToLinear(const std::string& source, const uint8_t* bytes) {
  if (source == "PCM16") {
    const int value = bytes[0] + 256 * bytes[1];
    return value < 32768 ? value : value - 65536;
  }
  return source == "PCM8" ? 256 * (bytes[0] - 128) : source == "ALAW" ? ALawValue(bytes[0]) : MuLawValue(bytes[0]);
}

void PutLinear(const std::string& target, int sample, Bytes& bytes) {
  if (target == "PCM16") {
    bytes.push_back(static_cast<uint8_t>((sample + 65536) % 256));
    bytes.push_back(static_cast<uint8_t>((sample + 65536) / 256 % 256));
  } else if (target == "PCM8") {
    const int up = sample < 0 ? -(-sample / 256) : sample / 256;
    bytes.push_back(static_cast<uint8_t>(up + 128));
  } else {
    bytes.push_back(static_cast<uint8_t>(target == "ALAW" ? ALawCode(sample) : MuLawCode(sample)));
  }
}

Bytes Expected(const std::string& target, const std::string& source, const Bytes& input) {
  if (target == source) {
    return input;
  }
  Bytes output;
  for (size_t i = 0; i + WidthOf(source) <= input.size(); i += WidthOf(source)) {
    PutLinear(target, ToLinear(source, &input[i]), output);
  }
  return output;
}

SampleBuffer Buffer(const Bytes& bytes) {
  SampleBuffer buffer(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), buffer.get());
  return buffer;
}

Bytes Convert(const char* target, const char* source, const Bytes& input) {
  const auto length = static_cast<uint32_t>(input.size());
  const SampleBuffer output = ConvertSamples(target, source, Buffer(input), length);
  EXPECT_TRUE(output);
  return output ? Bytes(output.get(), output.get() + ConvertedSize(target, source, length)) : Bytes{};
}

// Every sample that the format can carry.
Bytes AllSamples(const std::string& name) {
  Bytes bytes;
  for (unsigned i = 0; i < (name == "PCM16" ? 65536U : 256U); ++i) {
    bytes.push_back(static_cast<uint8_t>(i));
    if (name == "PCM16") {
      bytes.push_back(static_cast<uint8_t>(i >> 8));
    }
  }
  return bytes;
}

TEST(SampleFormat, EveryRouteConvertsEverySampleAsTheFormulasSay) {
  for (const char* target : kNames) {
    for (const char* source : kNames) {
      const Bytes input = AllSamples(source);
      EXPECT_EQ(Convert(target, source, input), Expected(target, source, input)) << source << " to " << target;
    }
  }
}

TEST(SampleFormat, NamedSamplesComeOutAsDocumented) {
  const Bytes samples = {0xFF, 0x7F, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x80};  // 32767, 0, -1, -32768
  EXPECT_EQ(Convert("PCM8", "PCM16", samples), (Bytes{255, 128, 128, 0}));
  EXPECT_EQ(Convert("MULAW", "PCM16", samples), (Bytes{0x80, 0xFF, 0x7F, 0x7F}));
  EXPECT_EQ(Convert("ALAW", "PCM16", samples), (Bytes{0xAA, 0xD5, 0x55, 0x55}));
  EXPECT_EQ(Convert("MULAW", "ALAW", {0xD5}), (Bytes{0xFE}));
  EXPECT_EQ(Convert("PCM8", "PCM16", {0x01, 0xFF, 0x00, 0xFF}), (Bytes{128, 127}));  // -255, -256
  EXPECT_EQ(Convert("PCM16", "ALAW", {0x00, 0x55, 0xD5, 0x80}),
            (Bytes{0x80, 0xEA, 0xF8, 0xFF, 0x08, 0x00, 0x80, 0x15}));  // -5504, -8, 8, 5504
  EXPECT_EQ(Convert("PCM16", "MULAW", {0x00, 0x7F, 0x80, 0xFF}),
            (Bytes{0x84, 0x82, 0x00, 0x00, 0x7C, 0x7D, 0x00, 0x00}));  // -32124, 0, 32124, 0
}

TEST(SampleFormat, NamesAreMatchedWithoutRegardToCase) {
  EXPECT_EQ(Convert("Alaw", "pcm16", {0x00, 0x00}), (Bytes{0xD5}));
  EXPECT_EQ(Convert("mulaW", "pCm8", {128}), (Bytes{0xFF}));
}

TEST(SampleFormat, SameFormatGivesTheSameBufferBack) {
  for (const char* name : kNames) {
    SampleBuffer buffer = Buffer({1, 2, 3});
    const uint8_t* const before = buffer.get();
    const SampleBuffer after = ConvertSamples(name, name, std::move(buffer), 3);
    EXPECT_EQ(after.get(), before);
    EXPECT_EQ(ConvertedSize(name, name, 3), 3U);
  }
}

TEST(SampleFormat, OddTrailingByteOfWideSamplesIsDropped) {
  EXPECT_EQ(ConvertedSize("ALAW", "PCM16", 3), 1U);
  EXPECT_EQ(Convert("ALAW", "PCM16", {0x00, 0x00, 0x12}), (Bytes{0xD5}));
  EXPECT_EQ(Convert("ALAW", "PCM16", {0x00}), Bytes{});
}

TEST(SampleFormat, NothingConvertsToAnEmptyBuffer) {
  for (const char* target : kNames) {
    for (const char* source : kNames) {
      EXPECT_TRUE(ConvertSamples(target, source, Buffer({}), 0));
      EXPECT_EQ(ConvertedSize(target, source, 0), 0U);
    }
  }
}

TEST(SampleFormat, UnknownNamesGiveNullAndSizeZeroAndReleaseTheInput) {
  // A buffer that was not released would show as a leak.
  for (const char* unknown : {"GSM", "", "PCM", "PCM160", "ALAWX", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(ConvertSamples(unknown, "ALAW", Buffer({1}), 1));
    EXPECT_FALSE(ConvertSamples("ALAW", unknown, Buffer({1}), 1));
    EXPECT_FALSE(ConvertSamples(unknown, unknown, Buffer({1}), 1));
    EXPECT_EQ(ConvertedSize(unknown, "ALAW", 100), 0U);
    EXPECT_EQ(ConvertedSize("ALAW", unknown, 100), 0U);
  }
}

TEST(SampleFormat, SizesNear4GigabytesAreRefusedNotWrapped) {
  EXPECT_EQ(ConvertedSize("ALAW", "MULAW", 0xFFFFFFFF), 0xFFFFFFFFU);
  EXPECT_EQ(ConvertedSize("ALAW", "PCM16", 0xFFFFFFFF), 0x7FFFFFFFU);
  EXPECT_EQ(ConvertedSize("PCM16", "ALAW", 0x7FFFFFFF), 0xFFFFFFFEU);
  EXPECT_EQ(ConvertedSize("PCM16", "ALAW", 0x80000000), 0U);
  EXPECT_FALSE(ConvertSamples("PCM16", "ALAW", Buffer({1}), 0x80000000));
}

TEST(SampleFormat, EachStepAllocatesItsOutputOnce) {
  for (const char* target : kNames) {
    for (const char* source : kNames) {
      const bool wide = WidthOf(target) == 2 || WidthOf(source) == 2;
      const uint64_t steps = std::strcmp(target, source) == 0 ? 0 : wide ? 1 : 2;
      SampleBuffer input = Buffer(Bytes(1000));
      const uint64_t before = support::AllocationCount();
      const SampleBuffer output = ConvertSamples(target, source, std::move(input), 1000);
      EXPECT_EQ(support::AllocationCount(), before + steps) << source << " to " << target;
    }
  }
}

TEST(SampleFormat, NullWithoutMemoryAtEveryStep) {
  for (const char* target : kNames) {
    for (const char* source : kNames) {
      for (uint32_t n = 1;; ++n) {
        SampleBuffer input = Buffer(Bytes(1000));
        support::FailAllocation(n);
        const SampleBuffer output = ConvertSamples(target, source, std::move(input), 1000);
        const bool failed = support::AllocationFailed();
        support::FailAllocation(0);
        EXPECT_EQ(!output, failed);
        if (!failed) {
          break;
        }
      }
    }
  }
}

}  // namespace
}  // namespace zelk
