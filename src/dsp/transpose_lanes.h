// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "dsp/transpose.h"

// The vector form, compiled into each source that includes this, at the width of its registers: one tile of 16 x 16
// bytes, or two side by side. Nothing here has external linkage: the linker would keep one copy for all, and it could
// be one for newer machines.
namespace zelk {
namespace {
namespace turning {

constexpr size_t kTile = kTurnedTogether;
#if defined(__AVX2__)
constexpr size_t kTiles = 2;
#else
constexpr size_t kTiles = 1;
#endif
static_assert(kBlockBytes % kTile == 0 && kTimeslotsPerTrunk % (kTile * kTiles) == 0);

typedef uint8_t Bytes __attribute__((vector_size(kTile * kTiles)));
typedef Bytes UnalignedBytes __attribute__((aligned(1), may_alias));

// Not by memcpy: the compiler moves 32 bytes in two halves by way of the stack, and waits there for both stores.
inline Bytes Load(const uint8_t* bytes) {
  return *reinterpret_cast<const UnalignedBytes*>(bytes);
}

#if defined(__AVX2__)
typedef uint8_t HalfBytes __attribute__((vector_size(kTile)));

// 16 bytes of each tile; of the only one, where there is one.
inline Bytes Join(const uint8_t* first, const uint8_t* last) {
  HalfBytes low;
  HalfBytes high;
  __builtin_memcpy(&low, first, sizeof low);
  __builtin_memcpy(&high, last, sizeof high);
  return __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,  //
                                 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
}
// Within each 16 bytes.
inline Bytes InterleaveLow(Bytes a, Bytes b) {
  return __builtin_shufflevector(a, b, 0, 32, 1, 33, 2, 34, 3, 35, 4, 36, 5, 37, 6, 38, 7, 39,  //
                                 16, 48, 17, 49, 18, 50, 19, 51, 20, 52, 21, 53, 22, 54, 23, 55);
}
inline Bytes InterleaveHigh(Bytes a, Bytes b) {
  return __builtin_shufflevector(a, b, 8, 40, 9, 41, 10, 42, 11, 43, 12, 44, 13, 45, 14, 46, 15, 47,  //
                                 24, 56, 25, 57, 26, 58, 27, 59, 28, 60, 29, 61, 30, 62, 31, 63);
}
#else
inline Bytes Join(const uint8_t* first, const uint8_t*) {
  Bytes bytes;
  __builtin_memcpy(&bytes, first, sizeof bytes);
  return bytes;
}
inline Bytes InterleaveLow(Bytes a, Bytes b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
inline Bytes InterleaveHigh(Bytes a, Bytes b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}
#endif

// Interleaving the two halves of a tile rotates the 8 address bits of its bytes by one; four times swaps row and
// column.
inline void Transpose(Bytes (&tile)[kTile]) {
  Bytes turned[kTile];
  for (int pass = 0; pass < 2; ++pass) {
    for (size_t i = 0; i < kTile / 2; ++i) {
      turned[2 * i] = InterleaveLow(tile[i], tile[i + kTile / 2]);
      turned[2 * i + 1] = InterleaveHigh(tile[i], tile[i + kTile / 2]);
    }
    for (size_t i = 0; i < kTile / 2; ++i) {
      tile[2 * i] = InterleaveLow(turned[i], turned[i + kTile / 2]);
      tile[2 * i + 1] = InterleaveHigh(turned[i], turned[i + kTile / 2]);
    }
  }
}

// Tile t of a vector is its bytes from 16 t on, the positions from 16 t on beside the first.
inline const uint8_t* TileOf(const Bytes& vector, size_t t) {
  return reinterpret_cast<const uint8_t*>(&vector) + t * kTile;
}

void FindSteady(const uint8_t* rows, size_t positions, uint8_t* changes) {
  for (size_t position = 0; position < positions; position += sizeof(Bytes)) {
    const Bytes first = Load(rows + position);
    Bytes moved = first ^ first;
    for (size_t row = 1; row < kBlockBytes; ++row)
      moved |= Load(rows + row * positions + position) ^ first;
    *reinterpret_cast<UnalignedBytes*>(changes + position) = moved;
  }
}

bool HasAny(uint8_t* const* blocks) {
  bool any = false;
  for (size_t i = 0; i < kTile * kTiles; ++i)
    any = any || blocks[i] != nullptr;
  return any;
}

void RowsToBlocks(const uint8_t* rows, size_t positions, uint8_t* const* blocks) {
  for (size_t position = 0; position < positions; position += kTile * kTiles) {
    if (!HasAny(blocks + position))
      continue;
    for (size_t row = 0; row < kBlockBytes; row += kTile) {
      Bytes tile[kTile];
      for (size_t i = 0; i < kTile; ++i)
        tile[i] = Load(rows + (row + i) * positions + position);
      Transpose(tile);
      for (size_t t = 0; t < kTiles; ++t) {
        for (size_t i = 0; i < kTile; ++i) {
          if (uint8_t* const block = blocks[position + t * kTile + i])
            __builtin_memcpy(block + row, TileOf(tile[i], t), kTile);
        }
      }
    }
  }
}

// Of two tiles, the one without blocks is turned as a copy of the other, and not written.
void TurnTiles(const uint8_t* const* blocks, size_t row, size_t positions, uint8_t* rows) {
  Bytes tile[kTile];
  const size_t first = blocks[0] != nullptr ? 0 : (kTiles - 1) * kTile;
  const size_t last = blocks[(kTiles - 1) * kTile] != nullptr ? (kTiles - 1) * kTile : 0;
  for (size_t i = 0; i < kTile; ++i)
    tile[i] = Join(blocks[first + i] + row, blocks[last + i] + row);
  Transpose(tile);
  for (size_t t = 0; t < kTiles; ++t) {
    for (size_t i = 0; i < kTile && blocks[t * kTile] != nullptr; ++i)
      __builtin_memcpy(rows + (row + i) * positions + t * kTile, TileOf(tile[i], t), kTile);
  }
}

void BlocksToRows(const uint8_t* const* blocks, size_t positions, uint8_t* rows) {
  for (size_t position = 0; position < positions; position += kTile * kTiles) {
    if (blocks[position] == nullptr && blocks[position + (kTiles - 1) * kTile] == nullptr)
      continue;
    for (size_t row = 0; row < kBlockBytes; row += kTile)
      TurnTiles(blocks + position, row, positions, rows + position);
  }
}

}  // namespace turning
}  // namespace
}  // namespace zelk
