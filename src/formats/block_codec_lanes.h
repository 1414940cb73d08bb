// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "formats/block_codec.h"

// What the vector forms of the codecs are made of, in vectors of 16 bytes, or of 32 where the including source has
// ZELK_WIDE_LANES. Nothing here, nor what it uses, is an inline function with external linkage: the linker would keep
// one copy of it, and it could be one that not every machine runs.

namespace zelk {
namespace {

#if defined(ZELK_WIDE_LANES)
#define ZELK_LANES_BYTES 32
#else
#define ZELK_LANES_BYTES 16
#endif

constexpr size_t kChunk = ZELK_LANES_BYTES;  // samples, in two vectors of words

typedef uint8_t Bytes __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef int16_t Words __attribute__((vector_size(ZELK_LANES_BYTES)));
typedef uint16_t UnsignedWords __attribute__((vector_size(ZELK_LANES_BYTES)));

constexpr uint8_t kALawFlip = 0xD5;  // even bits, and the sign: then 1 is negative
constexpr uint8_t kMuLawFlip = 0xFF;
constexpr int16_t kLanesMuLawBias = 0x84;
constexpr int16_t kMuLawClip = 32635;

// Wrapping, as vectors of signed numbers need not.
inline Words Plus(Words a, Words b) {
  return (Words)((UnsignedWords)a + (UnsignedWords)b);
}

inline Words Minus(Words a, Words b) {
  return (Words)((UnsignedWords)a - (UnsignedWords)b);
}

template <class Vector>
inline Vector Load(const uint8_t* bytes) {
  // Not by memcpy: the compiler moves 32 bytes in two halves by way of the stack, and waits there for both stores.
  typedef Vector Unaligned __attribute__((aligned(1), may_alias));
  return *reinterpret_cast<const Unaligned*>(bytes);
}

template <class Vector>
inline void Store(uint8_t* bytes, Vector vector) {
  typedef Vector Unaligned __attribute__((aligned(1), may_alias));
  *reinterpret_cast<Unaligned*>(bytes) = vector;
}

// Interleaving and packing work within each 16 bytes of a vector, in the same way, so that what was interleaved comes
// out in order when it is packed. Where only one of the two is done, the quarters of a long vector change places:
// 0 2 1 3. Packing makes narrower by saturation, which compilers do not find in a conversion; no magnitude saturates.
#if defined(ZELK_WIDE_LANES)
inline Bytes Quarters(Bytes v) {
  return (Bytes)_mm256_permute4x64_epi64((__m256i)v, 0xD8);
}
inline Words LowWords(Bytes low, Bytes high) {
  return (Words)_mm256_unpacklo_epi8((__m256i)low, (__m256i)high);
}
inline Words HighWords(Bytes low, Bytes high) {
  return (Words)_mm256_unpackhi_epi8((__m256i)low, (__m256i)high);
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
#if defined(__SSE2__)
inline Bytes PackSigned(Words a, Words b) {
  return (Bytes)_mm_packs_epi16((__m128i)a, (__m128i)b);
}
inline Bytes PackUnsigned(Words a, Words b) {
  return (Bytes)_mm_packus_epi16((__m128i)a, (__m128i)b);
}
#else
inline Bytes PackUnsigned(Words a, Words b) {
  return __builtin_shufflevector((Bytes)a, (Bytes)b, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
}
inline Bytes PackSigned(Words a, Words b) {
  return PackUnsigned(a, b);
}
#endif
#endif

inline Bytes Signs(Words low, Words high) {
#if defined(__SSE2__)
  return PackSigned(low, high) & 0x80;
#else
  return PackSigned(low >> 15, high >> 15) & 0x80;
#endif
}

inline void ExpandPcm8(const uint8_t* codes, uint8_t* samples) {
  const Bytes zero = {};
  const Bytes high = Quarters(Load<Bytes>(codes) ^ 0x80);
  Store(samples, LowWords(zero, high));
  Store(samples + kChunk, HighWords(zero, high));
}

inline Words HighBytes(Words samples) {
  return (samples + ((samples >> 15) & 0xFF)) >> 8;  // cut toward zero
}

inline void CompressPcm8(const uint8_t* samples, uint8_t* codes) {
  const Words low = HighBytes(Load<Words>(samples));
  const Words high = HighBytes(Load<Words>(samples + kChunk));
  Store(codes, Quarters(PackSigned(low, high) ^ 0x80));
}

// A form of a codec from what it does with a chunk; what fills no chunk goes to the plain form.
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

}  // namespace
}  // namespace zelk
