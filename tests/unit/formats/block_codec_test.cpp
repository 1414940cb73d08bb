// SPDX-License-Identifier: GPL-2.0-only
#include "formats/block_codec.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "formats/g711.h"

namespace zelk {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array kFormats{ESampleFormat::kPcm8, ESampleFormat::kALaw, ESampleFormat::kMuLaw};
constexpr std::array kInstructionSets{EInstructionSet::kPlain, EInstructionSet::kBaseline, EInstructionSet::kAvx2};
constexpr uint8_t kUntouched = 0xA7;

int16_t Expanded(ESampleFormat format, uint8_t code) {
  return format == ESampleFormat::kALaw    ? ALawToLinear(code)
         : format == ESampleFormat::kMuLaw ? MuLawToLinear(code)
                                           : static_cast<int16_t>((code - 128) * 256);
}

uint8_t Compressed(ESampleFormat format, int16_t sample) {
  return format == ESampleFormat::kALaw    ? LinearToALaw(sample)
         : format == ESampleFormat::kMuLaw ? LinearToMuLaw(sample)
                                           : static_cast<uint8_t>(sample / 256 + 128);
}

Bytes Expected(ESampleFormat format, const uint8_t* codes, size_t count) {
  Bytes samples;
  for (size_t i = 0; i < count; ++i) {
    const auto sample = static_cast<uint16_t>(Expanded(format, codes[i]));
    samples.push_back(static_cast<uint8_t>(sample));
    samples.push_back(static_cast<uint8_t>(sample >> 8));
  }
  return samples;
}

Bytes ExpectedCodes(ESampleFormat format, const uint8_t* samples, size_t count) {
  Bytes codes;
  for (size_t i = 0; i < count; ++i)
    codes.push_back(Compressed(format, static_cast<int16_t>(samples[2 * i] | samples[2 * i + 1] << 8)));
  return codes;
}

// Runs every form of every format that this machine has.
template <class Check>
void ForEachCodec(Check check) {
  for (const EInstructionSet instructionSet : kInstructionSets) {
    for (const ESampleFormat format : kFormats) {
      SCOPED_TRACE(testing::Message() << "set " << int(instructionSet) << ", format " << int(format));
      const SBlockCodec* const codec = BlockCodecs(instructionSet).Of(format);
      ASSERT_NE(codec, nullptr);
      if (IsSupported(instructionSet)) {
        ASSERT_NO_FATAL_FAILURE(check(*codec, format));
      }
    }
  }
}

TEST(BlockCodec, EveryCodeIsExpandedInEveryPlaceOfAVector) {
  ForEachCodec([](const SBlockCodec& codec, ESampleFormat format) {
    for (size_t shift = 0; shift < 64; ++shift) {
      Bytes codes(256 + 64);
      for (size_t i = 0; i < codes.size(); ++i)
        codes[i] = static_cast<uint8_t>(i + shift);
      Bytes samples(2 * codes.size());
      codec.expand(codes.data(), codes.size(), samples.data());
      ASSERT_EQ(samples, Expected(format, codes.data(), codes.size())) << shift;
    }
  });
}

TEST(BlockCodec, EverySampleIsCompressedInEveryPlaceOfAVector) {
  ForEachCodec([](const SBlockCodec& codec, ESampleFormat format) {
    for (size_t shift = 0; shift < 32; ++shift) {
      Bytes samples;
      for (size_t i = shift; i < shift + 65536; ++i) {
        samples.push_back(static_cast<uint8_t>(i));
        samples.push_back(static_cast<uint8_t>(i >> 8));
      }
      Bytes codes(65536);
      codec.compress(samples.data(), codes.size(), codes.data());
      ASSERT_EQ(codes, ExpectedCodes(format, samples.data(), codes.size())) << shift;
    }
  });
}

// With bytes around the output that must stay, and any neighbours of a sample.
TEST(BlockCodec, AnyLengthAtAnyAddressIsConvertedAndNothingBeside) {
  std::mt19937 random(3);
  Bytes input(1000);
  for (uint8_t& byte : input)
    byte = static_cast<uint8_t>(random());
  ForEachCodec([&input](const SBlockCodec& codec, ESampleFormat format) {
    for (size_t count = 0; count <= 300; ++count) {
      const size_t from = count % 35;
      const size_t to = count * 7 % 33;
      Bytes samples(to + 2 * count + 40, kUntouched);
      Bytes expected = samples;
      const Bytes expanded = Expected(format, &input[from], count);
      std::copy(expanded.begin(), expanded.end(), expected.begin() + static_cast<ptrdiff_t>(to));
      codec.expand(&input[from], count, &samples[to]);
      ASSERT_EQ(samples, expected) << count;

      Bytes codes(to + count + 40, kUntouched);
      expected = codes;
      const Bytes compressed = ExpectedCodes(format, &input[from], count);
      std::copy(compressed.begin(), compressed.end(), expected.begin() + static_cast<ptrdiff_t>(to));
      codec.compress(&input[from], count, &codes[to]);
      ASSERT_EQ(codes, expected) << count;
    }
  });
}

TEST(BlockCodec, ThereIsNoneOfSixteenBitSamples) {
  EXPECT_EQ(BlockCodecs().Of(ESampleFormat::kPcm16), nullptr);
}

TEST(BlockCodec, TheFastestSetOfTheMachineIsChosen) {
  EXPECT_EQ(&BlockCodecs(), &BlockCodecs(BestInstructionSet()));
  EXPECT_EQ(&BlockCodecs(EInstructionSet::kPlain), &kPlainCodecs);
}

}  // namespace
}  // namespace zelk
