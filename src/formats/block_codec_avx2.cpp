// SPDX-License-Identifier: GPL-2.0-only
#include "formats/block_codec.h"

#if defined(__AVX2__)

#define ZELK_WIDE_LANES
#include "formats/block_codec_lanes.h"

// The two laws in 32-byte vectors. A segment is found, and stands for what belongs to it, by tables of 16 bytes, which
// this instruction set looks up for each byte of a register; a product then does what a shift would, by the segment.

namespace zelk {
namespace {

// Bytes 0 to 7 and 8 to 15, the first one lowest, by the low halves of bytes; 0 by a byte from 128 on.
inline Bytes Look(uint64_t first, uint64_t last, Bytes at) {
  const auto low = (long long)first;
  const auto high = (long long)last;
  return (Bytes)_mm256_shuffle_epi8(_mm256_set_epi64x(high, low, high, low), (__m256i)at);
}

struct SPair {
  Words low;
  Words high;
};

// Of bytes that are numbers without sign.
inline SPair Products(Bytes a, Bytes b) {
  const Bytes zero = {};
  return {LowWords(a, zero) * LowWords(b, zero), HighWords(a, zero) * HighWords(b, zero)};
}

inline Bytes SegmentsOf(Bytes codes) {
  return (Bytes)((UnsignedWords)codes >> 4) & 7;
}

inline Bytes EightTimesStepsOf(Bytes codes) {
  return (Bytes)((UnsignedWords)(codes & 0x0F) << 3);
}

// The middle of each step in a unit of its segment, times the unit.
inline SPair ALawMagnitudes(Bytes codes) {
  const Bytes segments = SegmentsOf(codes);
  const Bytes middles = EightTimesStepsOf(codes) | Look(0x8484848484848404, 0, segments);
  return Products(middles, Look(0x8040201008040202, 0, segments));
}

inline SPair MuLawMagnitudes(Bytes codes) {
  const Bytes middles = EightTimesStepsOf(codes) + static_cast<uint8_t>(kLanesMuLawBias);
  const SPair biased = Products(middles, Look(0x8040201008040201, 0, SegmentsOf(codes)));
  return {biased.low - kLanesMuLawBias, biased.high - kLanesMuLawBias};
}

inline Words Signed(Words magnitudes, Words codes) {
  return (Words)_mm256_sign_epi16((__m256i)magnitudes, (__m256i)codes);
}

template <uint8_t kFlip, SPair (*Magnitudes)(Bytes)>
inline void ExpandLaw(const uint8_t* codes, uint8_t* samples) {
  const Bytes ones = ~Bytes{};  // a sign is never taken from zero
  const Bytes flipped = Quarters(Load<Bytes>(codes) ^ kFlip);
  const SPair magnitudes = Magnitudes(flipped);
  Store(samples, Signed(magnitudes.low, LowWords(ones, flipped)));
  Store(samples + kChunk, Signed(magnitudes.high, HighWords(ones, flipped)));
}

inline Words MagnitudesOf(Words samples) {
  return (Words)_mm256_abs_epi16((__m256i)samples);  // -32768 stays
}

inline Bytes Larger(Bytes a, Bytes b) {
  return (Bytes)_mm256_max_epu8((__m256i)a, (__m256i)b);
}

inline Bytes HighHalves(Bytes v) {
  return (Bytes)((UnsignedWords)v >> 4) & 0x0F;
}

// The values moved up by factors, so that the four bits below the first one are always the same: those, and the first.
inline Bytes StepsOf(SPair values, Bytes factors) {
  const Bytes zero = {};
  const UnsignedWords low = (UnsignedWords)values.low * (UnsignedWords)LowWords(factors, zero);
  const UnsignedWords high = (UnsignedWords)values.high * (UnsignedWords)HighWords(factors, zero);
  return PackUnsigned((Words)(low >> 10), (Words)(high >> 10));
}

// Segments by the topmost bit, from bits 8 to 14: of a byte's halves, the one that knows a larger one. Segment 0 has no
// first bit, and is moved as segment 1. Bit 15 alone is in segment 0.
inline Bytes ALawSteps(Words low, Words high) {
  const SPair magnitudes = {MagnitudesOf(low), MagnitudesOf(high)};
  const Bytes tops =
      PackUnsigned((Words)((UnsignedWords)magnitudes.low >> 8), (Words)((UnsignedWords)magnitudes.high >> 8));
  const Bytes segments =
      Larger(Look(0x0303030302020100, 0x0404040404040404, tops), Look(0x0707070706060500, 0, HighHalves(tops)));
  return StepsOf(magnitudes, Look(0x0102040810204040, 0, segments)) + Look(0x6050403020100000, 0, segments);
}

// Segments by the topmost bit, from bits 7 to 14.
inline Bytes MuLawSteps(Words low, Words high) {
  const __m256i clip = _mm256_set1_epi16(kMuLawClip);
  const Words clippedLow = (Words)_mm256_min_epi16((__m256i)MagnitudesOf(low), clip);
  const Words clippedHigh = (Words)_mm256_min_epi16((__m256i)MagnitudesOf(high), clip);
  const SPair biased = {Plus(clippedLow, kLanesMuLawBias + Words{}), Plus(clippedHigh, kLanesMuLawBias + Words{})};
  const Bytes tops = PackUnsigned((Words)((UnsignedWords)Plus(biased.low, biased.low) >> 8),
                                  (Words)((UnsignedWords)Plus(biased.high, biased.high) >> 8));
  const Bytes segments = Larger(Look(0x0202020201010000, 0x0303030303030303, tops),
                                Look(0x0606060605050400, 0x0707070707070707, HighHalves(tops)));
  return StepsOf(biased, Look(0x0102040810204080, 0, segments)) + Look(0x60504030201000F0, 0, segments);
}

template <uint8_t kFlip, Bytes (*Steps)(Words, Words)>
inline void CompressLaw(const uint8_t* samples, uint8_t* codes) {
  const auto low = Load<Words>(samples);
  const auto high = Load<Words>(samples + kChunk);
  Store(codes, Quarters((Signs(low, high) | Steps(low, high)) ^ kFlip));
}

}  // namespace

constinit const SBlockCodecs kAvx2Codecs = {
    {Expand<ExpandPcm8, &SBlockCodecs::pcm8>, Compress<CompressPcm8, &SBlockCodecs::pcm8>},
    {Expand<ExpandLaw<kALawFlip, ALawMagnitudes>, &SBlockCodecs::aLaw>,
     Compress<CompressLaw<kALawFlip, ALawSteps>, &SBlockCodecs::aLaw>},
    {Expand<ExpandLaw<kMuLawFlip, MuLawMagnitudes>, &SBlockCodecs::muLaw>,
     Compress<CompressLaw<kMuLawFlip, MuLawSteps>, &SBlockCodecs::muLaw>},
};

}  // namespace zelk

#else

#include "formats/block_codec_floats.h"

namespace zelk {

constinit const SBlockCodecs kAvx2Codecs = kFloatCodecs;

}  // namespace zelk

#endif
