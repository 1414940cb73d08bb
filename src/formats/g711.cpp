// SPDX-License-Identifier: GPL-2.0-only
#include "formats/g711.h"

namespace zelk {
namespace {

constexpr int16_t kClip = 32635;      // the largest magnitude either law can code
constexpr int16_t kMuLawBias = 0x84;  // moves every segment boundary of mu-law to a power of two
constexpr uint8_t kEvenBits = 0x55;   // A-law travels with its even bits inverted

constexpr int16_t ExpandALaw(uint8_t code) {
  const unsigned bits = code ^ kEvenBits;
  const unsigned segment = bits >> 4 & 7;
  // The value stands in the middle of its step; segments 0 and 1 share one step size.
  const int step = static_cast<int>((bits & 0x0F) << 4) + 8;
  const int magnitude = segment == 0 ? step : (step + 0x100) << (segment - 1);
  return static_cast<int16_t>((bits & 0x80) != 0 ? magnitude : -magnitude);
}

constexpr int16_t ExpandMuLaw(uint8_t code) {
  const unsigned bits = code ^ 0xFFU;
  const int magnitude = ((static_cast<int>((bits & 0x0F) << 3) + kMuLawBias) << (bits >> 4 & 7)) - kMuLawBias;
  return static_cast<int16_t>((bits & 0x80) != 0 ? -magnitude : magnitude);
}

template <typename Expand>
constexpr std::array<int16_t, 256> MakeTable(Expand expand) {
  std::array<int16_t, 256> table{};
  for (unsigned code = 0; code < 256; ++code)
    table[code] = expand(static_cast<uint8_t>(code));
  return table;
}

// Entry i: the number of bits of i, and 1 for 0.
constexpr std::array<uint8_t, 256> MakeBitCounts() {
  std::array<uint8_t, 256> counts{1};
  for (unsigned i = 1; i < 256; ++i)
    counts[i] = static_cast<uint8_t>(i < 2 ? 1 : counts[i >> 1] + 1);
  return counts;
}

constexpr std::array<uint8_t, 256> kBitCounts = MakeBitCounts();

// In 16 bits, so -32768 has no positive counterpart and stays; it then passes the clip (a signed compare) untouched.
constexpr int16_t ClippedMagnitude(int16_t sample) {
  const auto magnitude = static_cast<int16_t>(sample < 0 ? -sample : sample);
  return magnitude > kClip ? kClip : magnitude;
}

}  // namespace

constinit const std::array<int16_t, 256> kALawExpansion = MakeTable(ExpandALaw);
constinit const std::array<int16_t, 256> kMuLawExpansion = MakeTable(ExpandMuLaw);

uint8_t LinearToALaw(int16_t sample) {
  const unsigned sign = sample >= 0 ? 0x80 : 0;
  const int magnitude = ClippedMagnitude(sample);
  int code = magnitude >> 4;
  if (magnitude >= 256) {
    const int exponent = kBitCounts[static_cast<unsigned>(magnitude) >> 8 & 0x7F];
    code = exponent << 4 | (magnitude >> (exponent + 3) & 0x0F);
  }
  return static_cast<uint8_t>(static_cast<unsigned>(code) ^ sign ^ kEvenBits);
}

uint8_t LinearToMuLaw(int16_t sample) {
  const int sign = sample < 0 ? 0x80 : 0;
  const auto biased = static_cast<int16_t>(ClippedMagnitude(sample) + kMuLawBias);
  const int exponent = kBitCounts[static_cast<unsigned>(biased >> 7) & 0xFF] - 1;
  const int mantissa = biased >> (exponent + 3) & 0x0F;
  return static_cast<uint8_t>(~(sign | exponent << 4 | mantissa));
}

}  // namespace zelk
