// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "dsp/dtmf_filters.h"

// The vector forms of dsp/dtmf_filters.h, compiled into each source that includes this, at the width of its registers.
// Nothing here has external linkage: the linker would keep one copy for all, and it could be one for newer machines.
namespace zelk {
namespace {
namespace vectors {

#if defined(__AVX2__)
constexpr size_t kRegister = 32;
#else
constexpr size_t kRegister = 16;
#endif
constexpr size_t kLanes = kRegister / sizeof(float);
static_assert(kLanes <= kMostLanes);

typedef float Floats __attribute__((vector_size(kRegister)));
typedef uint8_t Bytes __attribute__((vector_size(kRegister)));
typedef uint8_t SixteenBytes __attribute__((vector_size(16)));
typedef int16_t Words __attribute__((vector_size(kRegister)));
typedef int32_t Sums __attribute__((vector_size(kRegister)));
typedef int32_t FourSums __attribute__((vector_size(16)));
typedef float Four __attribute__((vector_size(16)));
constexpr size_t kWords = kRegister / sizeof(int16_t);
constexpr size_t kUsed = (kDtmfBlock / 2 + kWords - 1) / kWords;  // registers of half a block's words

template <class Vector>
inline Vector Load(const void* from) {
  // Not by memcpy: the compiler moves 32 bytes in two halves by way of the stack, and waits there for both stores.
  typedef Vector Unaligned __attribute__((aligned(1), may_alias));
  return *reinterpret_cast<const Unaligned*>(from);
}

template <class Vector>
inline void Store(void* to, Vector vector) {
  typedef Vector Unaligned __attribute__((aligned(1), may_alias));
  *reinterpret_cast<Unaligned*>(to) = vector;
}

template <class Vector>
inline Vector Larger(Vector a, Vector b) {
  return a > b ? a : b;
}

// One filter over as many blocks as a register has lanes.
struct SFilter {
  float coefficient;
  Floats newer = {};
  Floats older = {};

  inline void Step(Floats x) {
    const Floats s0 = coefficient * newer - older + x;
    older = newer;
    newer = s0;
  }
  inline void End(float* energies) const {
    const Floats s0 = coefficient * newer - older;
    Store(energies, newer * newer + s0 * s0 - coefficient * newer * s0);
  }
};

struct SFilterGroup {
  explicit SFilterGroup(const float* coefficients)
      : a{coefficients[0]}, b{coefficients[1]}, c{coefficients[2]}, d{coefficients[3]} {}

  inline void Step(Floats x) {
    a.Step(x);
    b.Step(x);
    c.Step(x);
    d.Step(x);
  }
  inline void End(float (*energies)[kMostLanes]) const {
    a.End(energies[0]);
    b.End(energies[1]);
    c.End(energies[2]);
    d.End(energies[3]);
  }

  SFilter a, b, c, d;
};

void RunLanes(const uint8_t* const* blocks, const SDtmfTables& tables, SLaneEnergies& result) {
  alignas(kRegister) float samples[kDtmfBlock][kLanes];
  for (size_t lane = 0; lane < kLanes; ++lane) {
#pragma GCC unroll 6
    for (size_t i = 0; i < kDtmfBlock; ++i)
      samples[i][lane] = tables.expansion[blocks[lane][i]];
  }
  SFilterGroup rows(tables.coefficients);
  SFilterGroup columns(tables.coefficients + kTonesOfGroup);
  Floats total{};
  for (size_t i = 0; i < kDtmfBlock; ++i) {
    const Floats x = Load<Floats>(samples[i]);
    total += x * x;
    rows.Step(x);
    columns.Step(x);
  }
  rows.End(result.rows);
  columns.End(result.columns);
  Store(result.totals, total);
}

// A block folded at its middle: sums and differences of the samples as far from it on either side, in units of 8. What
// is even about the middle, cosines, meets the sums, and what is odd, sines, the differences: half the products.
struct SFolded {
  Words sums[kUsed];
  Words differences[kUsed];
};

#if defined(__AVX2__)

// A magnitude is steps * scale, with two bytes to a sample: the product of both sides' pairs is their sum.
struct SStepsAndScales {
  __m256i steps;
  __m256i scales;
};

inline SStepsAndScales Take(__m256i alaw) {
  const __m256i low = _mm256_set1_epi8(0x0F);
  const __m256i stepsOfSegment = _mm256_setr_epi8(1, 33, 33, 33, 33, 33, 33, 33, 1, 33, 33, 33, 33, 33, 33, 33,  //
                                                  1, 33, 33, 33, 33, 33, 33, 33, 1, 33, 33, 33, 33, 33, 33, 33);
  const __m256i scaleOfSegment = _mm256_setr_epi8(-1, -1, -2, -4, -8, -16, -32, -64, 1, 1, 2, 4, 8, 16, 32, 64,  //
                                                  -1, -1, -2, -4, -8, -16, -32, -64, 1, 1, 2, 4, 8, 16, 32, 64);
  const __m256i bits = _mm256_xor_si256(alaw, _mm256_set1_epi8(0x55));
  const __m256i step = _mm256_and_si256(bits, low);
  const __m256i segment = _mm256_and_si256(_mm256_srli_epi16(bits, 4), low);
  return {_mm256_add_epi8(_mm256_add_epi8(step, step), _mm256_shuffle_epi8(stepsOfSegment, segment)),
          _mm256_shuffle_epi8(scaleOfSegment, segment)};
}

// 32 samples from the front and the 32 that lie opposite.
inline void FoldPart(const uint8_t* front, const uint8_t* back, Words* sums, Words* differences) {
  const __m256i turn = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0,  //
                                        15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  // Groups of eight in the order 0 2 1 3, which the interleaving below makes 0 1 2 3.
  const SStepsAndScales a = Take(_mm256_permute4x64_epi64(Load<__m256i>(front), 0xD8));
  const SStepsAndScales b = Take(_mm256_permute4x64_epi64(_mm256_shuffle_epi8(Load<__m256i>(back), turn), 0x72));
  const __m256i negative = _mm256_sub_epi8(_mm256_setzero_si256(), b.scales);
  const __m256i low = _mm256_unpacklo_epi8(a.steps, b.steps);
  const __m256i high = _mm256_unpackhi_epi8(a.steps, b.steps);
  sums[0] = reinterpret_cast<Words>(_mm256_maddubs_epi16(low, _mm256_unpacklo_epi8(a.scales, b.scales)));
  sums[1] = reinterpret_cast<Words>(_mm256_maddubs_epi16(high, _mm256_unpackhi_epi8(a.scales, b.scales)));
  differences[0] = reinterpret_cast<Words>(_mm256_maddubs_epi16(low, _mm256_unpacklo_epi8(a.scales, negative)));
  differences[1] = reinterpret_cast<Words>(_mm256_maddubs_epi16(high, _mm256_unpackhi_epi8(a.scales, negative)));
}

inline SFolded Fold(const uint8_t* block, const SDtmfTables&) {
  SFolded folded;
  FoldPart(block, block + kDtmfBlock - 32, &folded.sums[0], &folded.differences[0]);
  FoldPart(block + 32, block + kDtmfBlock - 64, &folded.sums[2], &folded.differences[2]);
  const Words valid = {-1, -1, -1};
  folded.sums[3] &= valid;
  folded.differences[3] &= valid;
  return folded;
}

#else

inline SFolded Fold(const uint8_t* block, const SDtmfTables& tables) {
  alignas(kRegister) int16_t front[kDtmfHalfRoom];
  alignas(kRegister) int16_t back[kDtmfHalfRoom];
  for (size_t i = 0; i < kDtmfBlock / 2; ++i) {
    front[i] = tables.eighths[block[i]];
    back[i] = tables.eighths[block[kDtmfBlock - 1 - i]];
  }
  for (size_t i = kDtmfBlock / 2; i < kDtmfHalfRoom; ++i)
    front[i] = back[i] = 0;
  SFolded folded;
  for (size_t i = 0; i < kUsed; ++i) {
    const Words a = Load<Words>(front + i * kWords);
    const Words b = Load<Words>(back + i * kWords);
    folded.sums[i] = a + b;
    folded.differences[i] = a - b;
  }
  return folded;
}

#endif

// Products of words, added in pairs.
inline Sums Products(Words a, Words b) {
#if defined(__AVX2__)
  return reinterpret_cast<Sums>(_mm256_madd_epi16(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
#elif defined(__SSE2__)
  return reinterpret_cast<Sums>(_mm_madd_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#else
  Sums result;
  for (size_t i = 0; i < kWords; i += 2)
    result[i / 2] = int32_t{a[i]} * b[i] + int32_t{a[i + 1]} * b[i + 1];
  return result;
#endif
}

inline FourSums Narrow(Sums sums) {
#if defined(__AVX2__)
  return __builtin_shufflevector(sums, sums, 0, 1, 2, 3) + __builtin_shufflevector(sums, sums, 4, 5, 6, 7);
#else
  return sums;
#endif
}

inline FourSums DotProduct(const Words* folded, const int16_t* wave) {
  Sums sums{};
#pragma GCC unroll 8
  for (size_t i = 0; i < kUsed; ++i)
    sums += Products(folded[i], Load<Words>(wave + i * kWords));
  return Narrow(sums);
}

// Of each vector the sum of its lanes.
inline FourSums Across(FourSums a, FourSums b, FourSums c, FourSums d) {
  const FourSums ab = __builtin_shufflevector(a, b, 0, 4, 1, 5) + __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const FourSums cd = __builtin_shufflevector(c, d, 0, 4, 1, 5) + __builtin_shufflevector(c, d, 2, 6, 3, 7);
  return __builtin_shufflevector(ab, cd, 0, 1, 4, 5) + __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
}

inline Four ToFloats(FourSums sums) {
#if defined(__SSE2__)
  return reinterpret_cast<Four>(_mm_cvtepi32_ps(reinterpret_cast<__m128i>(sums)));
#else
  return Four{static_cast<float>(sums[0]), static_cast<float>(sums[1]), static_cast<float>(sums[2]),
              static_cast<float>(sums[3])};
#endif
}

inline void Look(const uint8_t* block, const SDtmfTables& tables, SDtmfGlance& glance) {
  const SFolded folded = Fold(block, tables);
  Sums energies{};
#pragma GCC unroll 8
  for (size_t i = 0; i < kUsed; ++i)
    energies += Products(folded.sums[i], folded.sums[i]) + Products(folded.differences[i], folded.differences[i]);
  const FourSums four = Narrow(energies);
  typedef uint32_t Unsigned __attribute__((vector_size(16)));
  const Unsigned twice = reinterpret_cast<const Unsigned&>(four);
  glance.energy = (twice[0] + twice[1] + twice[2] + twice[3]) / 2;
  const Four even =
      ToFloats(Across(DotProduct(folded.sums, tables.cosines[0]), DotProduct(folded.sums, tables.cosines[1]),
                      DotProduct(folded.sums, tables.cosines[2]), DotProduct(folded.sums, tables.cosines[3])));
  const Four odd = ToFloats(
      Across(DotProduct(folded.differences, tables.sines[0]), DotProduct(folded.differences, tables.sines[1]),
             DotProduct(folded.differences, tables.sines[2]), DotProduct(folded.differences, tables.sines[3])));
  Store(glance.columns, even * even + odd * odd);
}

void Glance(const uint8_t* const* blocks, size_t count, const SDtmfTables& tables, SDtmfGlance* glances) {
  for (size_t i = 0; i < count; ++i)
    Look(blocks[i], tables, glances[i]);
}

uint8_t LoudestOf(const uint8_t* alaw) {
  Bytes all{};
#pragma GCC unroll 10
  for (size_t i = 0; i < kDelivered; i += kRegister)
    all = Larger(all, (Load<Bytes>(alaw + i) ^ 0x55) & 0x7F);
#if defined(__AVX2__)
  SixteenBytes most =
      Larger(__builtin_shufflevector(all, all, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15),
             __builtin_shufflevector(all, all, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31));
#else
  SixteenBytes most = all;
#endif
  most = Larger(most, __builtin_shufflevector(most, most, 8, 9, 10, 11, 12, 13, 14, 15, 8, 9, 10, 11, 12, 13, 14, 15));
  most = Larger(most, __builtin_shufflevector(most, most, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7));
  most = Larger(most, __builtin_shufflevector(most, most, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3));
  return most[0] > most[1] ? most[0] : most[1];
}

}  // namespace vectors
}  // namespace
}  // namespace zelk
