// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "formats/block_codec.h"

// The codecs in the vectors of the instruction set that the including source is compiled for. Nothing here, nor what it
// uses, is an inline function with external linkage: the linker would keep one copy of it, and it could be one that not
// every machine runs.
//
// Both laws are floating point numbers of 3 bits of exponent and 4 of mantissa, so the processor's own conversions
// between integers and floats find the segment and the step of 4 samples, or 8, at once; all values are exact there.

namespace zelk {
namespace {

#if defined(__AVX2__)
#define ZELK_LANES_BYTES 32
#else
#define ZELK_LANES_BYTES 16
#endif

constexpr size_t kChunk = ZELK_LANES_BYTES;  // samples, in two vectors of words

typedef uint8_t Bytes __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef int16_t Words __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef uint16_t UnsignedWords __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef int32_t DWords __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef float Floats __attribute__((vector_size(ZELK_LANES_BYTES)));

// Wrapping, as vectors of signed numbers need not.
inline Words Plus(Words a, Words b) {
  return (Words)((UnsignedWords)a + (UnsignedWords)b);
}

inline Words Minus(Words a, Words b) {
  return (Words)((UnsignedWords)a - (UnsignedWords)b);
}

template <class Vector>
inline Vector Load(const uint8_t* bytes) {
  Vector vector;
  __builtin_memcpy(&vector, bytes, sizeof vector);
  return vector;
}

template <class Vector>
inline void Store(uint8_t* bytes, Vector vector) {
  __builtin_memcpy(bytes, &vector, sizeof vector);
}

// Interleaving and packing work within each 16 bytes of a vector, in the same way, so that what was interleaved comes
// out in order when it is packed. Where only one of the two is done, the quarters of a long vector change places:
// 0 2 1 3.
#if defined(__AVX2__)
inline Bytes Quarters(Bytes v) {
  return (Bytes)_mm256_permute4x64_epi64((__m256i)v, 0xD8);
}
inline Words LowWords(Bytes low, Bytes high) {
  return (Words)_mm256_unpacklo_epi8((__m256i)low, (__m256i)high);
}
inline Words HighWords(Bytes low, Bytes high) {
  return (Words)_mm256_unpackhi_epi8((__m256i)low, (__m256i)high);
}
inline DWords LowDWords(Words low, Words high) {
  return (DWords)_mm256_unpacklo_epi16((__m256i)low, (__m256i)high);
}
inline DWords HighDWords(Words low, Words high) {
  return (DWords)_mm256_unpackhi_epi16((__m256i)low, (__m256i)high);
}
inline Words Pack(DWords a, DWords b) {
  return (Words)_mm256_packs_epi32((__m256i)a, (__m256i)b);
}
inline Bytes PackSigned(Words a, Words b) {
  return (Bytes)_mm256_packs_epi16((__m256i)a, (__m256i)b);
}
inline Bytes PackUnsigned(Words a, Words b) {
  return (Bytes)_mm256_packus_epi16((__m256i)a, (__m256i)b);
}
#else
inline Bytes Quarters(Bytes v) {
  return v;
}
inline Words LowWords(Bytes low, Bytes high) {
  return (Words)__builtin_shufflevector(low, high, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
inline Words HighWords(Bytes low, Bytes high) {
  return (Words)__builtin_shufflevector(low, high, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}
inline DWords LowDWords(Words low, Words high) {
  return (DWords)__builtin_shufflevector(low, high, 0, 8, 1, 9, 2, 10, 3, 11);
}
inline DWords HighDWords(Words low, Words high) {
  return (DWords)__builtin_shufflevector(low, high, 4, 12, 5, 13, 6, 14, 7, 15);
}
#if defined(__SSE2__)
// Narrower by saturation, which compilers do not find in a conversion; nothing here saturates.
inline Words Pack(DWords a, DWords b) {
  return (Words)_mm_packs_epi32((__m128i)a, (__m128i)b);
}
inline Bytes PackSigned(Words a, Words b) {
  return (Bytes)_mm_packs_epi16((__m128i)a, (__m128i)b);
}
inline Bytes PackUnsigned(Words a, Words b) {
  return (Bytes)_mm_packus_epi16((__m128i)a, (__m128i)b);
}
#else
inline Words Pack(DWords a, DWords b) {
  return __builtin_shufflevector((Words)a, (Words)b, 0, 2, 4, 6, 8, 10, 12, 14);
}
inline Bytes PackUnsigned(Words a, Words b) {
  return __builtin_shufflevector((Bytes)a, (Bytes)b, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
}
inline Bytes PackSigned(Words a, Words b) {
  return PackUnsigned(a, b);
}
#endif
#endif

constexpr int16_t kFirstExponent = 127 + 7;  // a float's, of the values from 128 on: segment 0 of mu-law
constexpr int kMantissaBits = 7;             // of a float's upper half, which has its exponent and these
constexpr int16_t kALawFlip = 0xD5;          // even bits, and the sign: then 1 is negative
constexpr int16_t kMuLawFlip = 0xFF;
constexpr int16_t kMuLawBias = 0x84;
constexpr int16_t kMuLawClip = 32635;
constexpr int16_t kALawEnd = 256;  // of segment 0, whose steps are as wide as those of segment 1

#if defined(__AVX2__)
// A byte of the table for each segment; the same table in both halves.
inline Bytes BySegment(Bytes codes, uint64_t table) {
  const Bytes segments = (Bytes)((UnsignedWords)codes >> 4) & 7;
  return (Bytes)_mm256_shuffle_epi8(_mm256_set1_epi64x((long long)table), (__m256i)segments);
}

// Words of magnitudes and of codes, whose top bits are their signs.
inline Words Signed(Words magnitudes, Bytes codes) {
  return (Words)_mm256_sign_epi16((__m256i)magnitudes, (__m256i)codes);
}

struct SMagnitudes {
  Words low;
  Words high;
};

// Each step's middle in its segment's own unit, times that unit.
inline SMagnitudes Products(Bytes middles, Bytes units) {
  const Bytes zero = {};
  return {LowWords(middles, zero) * LowWords(units, zero), HighWords(middles, zero) * HighWords(units, zero)};
}

inline SMagnitudes ALawMagnitudes(Bytes codes) {
  const Bytes steps = (Bytes)((UnsignedWords)(codes & 0x0F) << 3);
  return Products(steps | BySegment(codes, 0x8484848484848404), BySegment(codes, 0x8040201008040202));
}

inline SMagnitudes MuLawMagnitudes(Bytes codes) {
  const Bytes steps = (Bytes)((UnsignedWords)(codes & 0x0F) << 3);
  const SMagnitudes biased = Products(steps + static_cast<uint8_t>(kMuLawBias), BySegment(codes, 0x8040201008040201));
  return {biased.low - kMuLawBias, biased.high - kMuLawBias};
}

template <int16_t kFlip, SMagnitudes (*Magnitudes)(Bytes)>
inline void ExpandChunk(const uint8_t* codes, uint8_t* samples) {
  const Bytes ones = ~Bytes{};  // a sign is never taken from zero
  const Bytes flipped = Quarters(Load<Bytes>(codes) ^ static_cast<uint8_t>(kFlip));
  const SMagnitudes magnitudes = Magnitudes(flipped);
  Store(samples, Signed(magnitudes.low, (Bytes)LowWords(ones, flipped)));
  Store(samples + kChunk, Signed(magnitudes.high, (Bytes)HighWords(ones, flipped)));
}
#else
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
  return StepMiddles(codes) - kMuLawBias;
}

template <Words (*Magnitudes)(Words)>
inline Words Signed(Words codes) {
  const Words negative = codes >> 15;
  return (Magnitudes(codes) ^ negative) - negative;
}

template <int16_t kFlip, Words (*Magnitudes)(Words)>
inline void ExpandChunk(const uint8_t* codes, uint8_t* samples) {
  const Bytes zero = {};
  const Bytes flipped = Quarters(Load<Bytes>(codes) ^ static_cast<uint8_t>(kFlip));
  Store(samples, Signed<Magnitudes>(LowWords(zero, flipped)));
  Store(samples + kChunk, Signed<Magnitudes>(HighWords(zero, flipped)));
}
#endif

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

inline Words ALawCodes(Words samples) {
  const Words magnitudes = MagnitudesOf(samples);
  const Words steps = StepsOf(magnitudes);
  return steps + (((magnitudes >> 4) - steps) & (Words)(magnitudes < kALawEnd));
}

inline Words MuLawCodes(Words samples) {
  const Words magnitudes = MagnitudesOf(samples);
  const Words over = Minus(magnitudes, kMuLawClip + Words{}) & (Words)(magnitudes > kMuLawClip);
  return StepsOf(Plus(magnitudes - over, kMuLawBias + Words{}));
}

template <int16_t kFlip, Words (*Codes)(Words)>
inline void CompressChunk(const uint8_t* samples, uint8_t* codes) {
  const auto low = Load<Words>(samples);
  const auto high = Load<Words>(samples + kChunk);
  const Bytes signs = PackSigned(low >> 15, high >> 15) & 0x80;
  // Of -32768, the least value of either law: what is beyond the segments is where the sign is.
  const Bytes steps = PackUnsigned(Codes(low), Codes(high));
  Store(codes, Quarters((signs | steps) ^ static_cast<uint8_t>(kFlip)));
}

inline void ExpandPcm8Chunk(const uint8_t* codes, uint8_t* samples) {
  const Bytes zero = {};
  const Bytes high = Quarters(Load<Bytes>(codes) ^ 0x80);
  Store(samples, LowWords(zero, high));
  Store(samples + kChunk, HighWords(zero, high));
}

inline Words HighBytes(Words samples) {
  return (samples + ((samples >> 15) & 0xFF)) >> 8;  // cut toward zero
}

inline void CompressPcm8Chunk(const uint8_t* samples, uint8_t* codes) {
  const Words low = HighBytes(Load<Words>(samples));
  const Words high = HighBytes(Load<Words>(samples + kChunk));
  Store(codes, Quarters(PackSigned(low, high) ^ 0x80));
}

// What fills no chunk goes to the plain form.
template <void (*Chunk)(const uint8_t*, uint8_t*), SBlockCodec SBlockCodecs::*kCodec>
void Expand(const uint8_t* codes, size_t count, uint8_t* samples) {
  for (; count >= kChunk; count -= kChunk, codes += kChunk, samples += 2 * kChunk)
    Chunk(codes, samples);
  (kPlainCodecs.*kCodec).expand(codes, count, samples);
}

template <void (*Chunk)(const uint8_t*, uint8_t*), SBlockCodec SBlockCodecs::*kCodec>
void Compress(const uint8_t* samples, size_t count, uint8_t* codes) {
  for (; count >= kChunk; count -= kChunk, codes += kChunk, samples += 2 * kChunk)
    Chunk(samples, codes);
  (kPlainCodecs.*kCodec).compress(samples, count, codes);
}

constexpr SBlockCodecs kLanesCodecs = {
    {Expand<ExpandPcm8Chunk, &SBlockCodecs::pcm8>, Compress<CompressPcm8Chunk, &SBlockCodecs::pcm8>},
    {Expand<ExpandChunk<kALawFlip, ALawMagnitudes>, &SBlockCodecs::aLaw>,
     Compress<CompressChunk<kALawFlip, ALawCodes>, &SBlockCodecs::aLaw>},
    {Expand<ExpandChunk<kMuLawFlip, MuLawMagnitudes>, &SBlockCodecs::muLaw>,
     Compress<CompressChunk<kMuLawFlip, MuLawCodes>, &SBlockCodecs::muLaw>},
};

}  // namespace
}  // namespace zelk
