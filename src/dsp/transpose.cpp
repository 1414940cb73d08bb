// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/transpose.h"

#include <algorithm>

#include "dsp/transpose_lanes.h"

namespace zelk {
namespace {

void PlainRowsToBlocks(const uint8_t* rows, size_t positions, uint8_t* const* blocks) {
  for (size_t position = 0; position < positions; ++position) {
    for (size_t row = 0; row < kBlockBytes && blocks[position] != nullptr; ++row)
      blocks[position][row] = rows[row * positions + position];
  }
}

void PlainBlocksToRows(const uint8_t* const* blocks, size_t positions, uint8_t* rows) {
  for (size_t position = 0; position < positions; ++position) {
    for (size_t row = 0; row < kBlockBytes && blocks[position] != nullptr; ++row)
      rows[row * positions + position] = blocks[position][row];
  }
}

void PlainFindSteady(const uint8_t* rows, size_t positions, uint8_t* changes) {
  std::fill_n(changes, positions, uint8_t{0});
  for (size_t row = 1; row < kBlockBytes; ++row) {
    for (size_t position = 0; position < positions; ++position)
      changes[position] = static_cast<uint8_t>(changes[position] | (rows[row * positions + position] ^ rows[position]));
  }
}

constexpr STurning kTurningPlain{PlainRowsToBlocks, PlainBlocksToRows, PlainFindSteady};
constexpr STurning kTurningBaseline{turning::RowsToBlocks, turning::BlocksToRows, turning::FindSteady};

const STurning& kTurning = TurningFor(BestInstructionSet());

}  // namespace

const STurning& TurningFor(EInstructionSet instructionSet) {
  switch (instructionSet) {
    case EInstructionSet::kPlain:
      return kTurningPlain;
    case EInstructionSet::kAvx2:
      return kTurningAvx2;
    case EInstructionSet::kBaseline:
      break;
  }
  return kTurningBaseline;
}

void RowsToBlocks(const uint8_t* rows, size_t positions, uint8_t* const* blocks) {
  kTurning.rowsToBlocks(rows, positions, blocks);
}

void FindSteady(const uint8_t* rows, size_t positions, uint8_t* changes) {
  kTurning.findSteady(rows, positions, changes);
}

void BlocksToRows(const uint8_t* const* blocks, size_t positions, uint8_t* rows) {
  kTurning.blocksToRows(blocks, positions, rows);
}

}  // namespace zelk
