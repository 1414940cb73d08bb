// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/transpose.h"

#include <cstring>

namespace zelk {
namespace {

constexpr size_t kTile = 16;
static_assert(kBlockBytes % kTile == 0 && kTimeslotsPerTrunk % kTile == 0);

// The compilers' portable vector: one register where the machine has them, several elsewhere.
typedef uint8_t Bytes __attribute__((vector_size(kTile)));

Bytes InterleaveLow(Bytes a, Bytes b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}

Bytes InterleaveHigh(Bytes a, Bytes b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}

// Interleaving the two halves of the tile rotates the 8 address bits of its bytes by one; four times swaps row and
// column.
inline void TransposeTile(Bytes (&tile)[kTile]) {
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

}  // namespace

void RowsToBlocks(const uint8_t* rows, size_t positions, uint8_t* const* blocks) {
  for (size_t position = 0; position < positions; position += kTile) {
    for (size_t row = 0; row < kBlockBytes; row += kTile) {
      Bytes tile[kTile];
      for (size_t i = 0; i < kTile; ++i)
        std::memcpy(&tile[i], rows + (row + i) * positions + position, kTile);
      TransposeTile(tile);
      for (size_t i = 0; i < kTile; ++i) {
        if (blocks[position + i] != nullptr)
          std::memcpy(blocks[position + i] + row, &tile[i], kTile);
      }
    }
  }
}

void BlocksToRows(const uint8_t* const* blocks, size_t positions, uint8_t* rows) {
  for (size_t position = 0; position < positions; position += kTile) {
    if (blocks[position] == nullptr)
      continue;
    for (size_t row = 0; row < kBlockBytes; row += kTile) {
      Bytes tile[kTile];
      for (size_t i = 0; i < kTile; ++i)
        std::memcpy(&tile[i], blocks[position + i] + row, kTile);
      TransposeTile(tile);
      for (size_t i = 0; i < kTile; ++i)
        std::memcpy(rows + (row + i) * positions + position, &tile[i], kTile);
    }
  }
}

}  // namespace zelk
