// SPDX-License-Identifier: GPL-2.0-only
#include "formats/block_codec.h"

#include <bit>

#include "formats/block_codec_floats.h"
#include "formats/g711.h"
#include "platform/bytes.h"

namespace zelk {
namespace {

int16_t Pcm8ToLinear(uint8_t code) {
  return static_cast<int16_t>((code - 128) * 256);
}

// The quotient is cut toward zero, so 128 covers -255 to 255.
uint8_t LinearToPcm8(int16_t sample) {
  return static_cast<uint8_t>(sample / 256 + 128);
}

template <int16_t (*Step)(uint8_t)>
void ExpandEach(const uint8_t* codes, size_t count, uint8_t* samples) {
  for (size_t i = 0; i < count; ++i)
    WriteLittle16(samples + 2 * i, static_cast<uint16_t>(Step(codes[i])));
}

template <uint8_t (*Step)(int16_t)>
void CompressEach(const uint8_t* samples, size_t count, uint8_t* codes) {
  for (size_t i = 0; i < count; ++i)
    codes[i] = Step(static_cast<int16_t>(ReadLittle16(samples + 2 * i)));
}

}  // namespace

constinit const SBlockCodecs kPlainCodecs = {
    {ExpandEach<Pcm8ToLinear>, CompressEach<LinearToPcm8>},
    {ExpandEach<ALawToLinear>, CompressEach<LinearToALaw>},
    {ExpandEach<MuLawToLinear>, CompressEach<LinearToMuLaw>},
};
constinit const SBlockCodecs kBaselineCodecs = kFloatCodecs;

const SBlockCodec* SBlockCodecs::Of(ESampleFormat format) const {
  switch (format) {
    case ESampleFormat::kPcm8:
      return &pcm8;
    case ESampleFormat::kALaw:
      return &aLaw;
    case ESampleFormat::kMuLaw:
      return &muLaw;
    case ESampleFormat::kPcm16:
      break;
  }
  return nullptr;
}

const SBlockCodecs& BlockCodecs(EInstructionSet instructionSet) {
  if (std::endian::native != std::endian::little || instructionSet == EInstructionSet::kPlain)
    return kPlainCodecs;
  return instructionSet == EInstructionSet::kAvx2 ? kAvx2Codecs : kBaselineCodecs;
}

const SBlockCodecs& BlockCodecs() {
  static const SBlockCodecs& fastest = BlockCodecs(BestInstructionSet());
  return fastest;
}

}  // namespace zelk
