// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "formats/block_codec_lanes.h"

// The two laws in 16-byte vectors. Both are floating point numbers of 3 bits of exponent and 4 of mantissa, so the
// processor's own conversions between integers and floats find segment and step of 4 samples at once; every value is
// exact there.

namespace zelk {
namespace {

typedef int32_t DWords __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef float Floats __attribute__((vector_size(ZELK_LANES_BYTES)));

constexpr int16_t kFirstExponent = 127 + 7;  // a float's, of the values from 128 on: segment 0 of mu-law
constexpr int kMantissaBits = 7;             // of a float's upper half, which has its exponent and these
constexpr int16_t kALawEnd = 256;            // of segment 0, whose steps are as wide as those of segment 1

inline DWords LowDWords(Words low, Words high) {
  return (DWords)__builtin_shufflevector(low, high, 0, 8, 1, 9, 2, 10, 3, 11);
}

inline DWords HighDWords(Words low, Words high) {
  return (DWords)__builtin_shufflevector(low, high, 4, 12, 5, 13, 6, 14, 7, 15);
}

inline Words Pack(DWords a, DWords b) {
#if defined(__SSE2__)
  return (Words)_mm_packs_epi32((__m128i)a, (__m128i)b);
#else
  return __builtin_shufflevector((Words)a, (Words)b, 0, 2, 4, 6, 8, 10, 12, 14);
#endif
}

// For codes in the words' high bytes: (1 + (2 * step + 1) / 32) * 2^(7 + segment), the middle of the step.
inline Words StepMiddles(Words codes) {
  const Words zero = {};
  const Words noSign = (Words)((UnsignedWords)Plus(codes, codes) >> 6);
  const Words halves = noSign + static_cast<int16_t>(kFirstExponent << kMantissaBits | 1 << 2);
  const Floats low = (Floats)LowDWords(zero, halves);
  const Floats high = (Floats)HighDWords(zero, halves);
  return Pack(__builtin_convertvector(low, DWords), __builtin_convertvector(high, DWords));
}

inline Words ALawMagnitudes(Words codes) {
  const Words middles = StepMiddles(codes);
  const Words aboveEnd = middles - kALawEnd;
  return middles + (aboveEnd & (aboveEnd >> 15));  // twice as far below the end, in segment 0
}

inline Words MuLawMagnitudes(Words codes) {
  return StepMiddles(codes) - kLanesMuLawBias;
}

template <Words (*Magnitudes)(Words)>
inline Words Signed(Words codes) {
  const Words negative = codes >> 15;
  return (Magnitudes(codes) ^ negative) - negative;
}

template <uint8_t kFlip, Words (*Magnitudes)(Words)>
inline void ExpandLaw(const uint8_t* codes, uint8_t* samples) {
  const Bytes zero = {};
  const Bytes flipped = Load<Bytes>(codes) ^ kFlip;
  Store(samples, Signed<Magnitudes>(LowWords(zero, flipped)));
  Store(samples + kChunk, Signed<Magnitudes>(HighWords(zero, flipped)));
}

// Segment and step of positive values from 128 on, 16 * segment + step.
inline Words StepsOf(Words values) {
  const Words zero = {};
  const Floats low = __builtin_convertvector(LowDWords(values, zero), Floats);
  const Floats high = __builtin_convertvector(HighDWords(values, zero), Floats);
  const Words halves = Pack((DWords)low >> 16, (DWords)high >> 16);
  return (halves >> (kMantissaBits - 4)) - (kFirstExponent << 4);
}

inline Words MagnitudesOf(Words samples) {
  const Words negative = samples >> 15;
  return Minus(samples ^ negative, negative);  // -32768 stays
}

inline Words ALawSteps(Words samples) {
  const Words magnitudes = MagnitudesOf(samples);
  const Words steps = StepsOf(magnitudes);
  return steps + (((magnitudes >> 4) - steps) & (Words)(magnitudes < kALawEnd));
}

inline Words MuLawSteps(Words samples) {
  const Words magnitudes = MagnitudesOf(samples);
  const Words over = Minus(magnitudes, kMuLawClip + Words{}) & (Words)(magnitudes > kMuLawClip);
  return StepsOf(Plus(magnitudes - over, kLanesMuLawBias + Words{}));
}

template <uint8_t kFlip, Words (*Steps)(Words)>
inline void CompressLaw(const uint8_t* samples, uint8_t* codes) {
  const auto low = Load<Words>(samples);
  const auto high = Load<Words>(samples + kChunk);
  // Of -32768, the least value of either law: what is beyond the segments is where the sign is.
  const Bytes steps = PackUnsigned(Steps(low), Steps(high));
  Store(codes, (Signs(low, high) | steps) ^ kFlip);
}

constexpr SBlockCodecs kFloatCodecs = {
    {Expand<ExpandPcm8, &SBlockCodecs::pcm8>, Compress<CompressPcm8, &SBlockCodecs::pcm8>},
    {Expand<ExpandLaw<kALawFlip, ALawMagnitudes>, &SBlockCodecs::aLaw>,
     Compress<CompressLaw<kALawFlip, ALawSteps>, &SBlockCodecs::aLaw>},
    {Expand<ExpandLaw<kMuLawFlip, MuLawMagnitudes>, &SBlockCodecs::muLaw>,
     Compress<CompressLaw<kMuLawFlip, MuLawSteps>, &SBlockCodecs::muLaw>},
};

}  // namespace
}  // namespace zelk
