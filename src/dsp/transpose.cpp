// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/transpose.h"

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

constexpr STurning kTurningPlain{PlainRowsToBlocks, PlainBlocksToRows};
constexpr STurning kTurningBaseline{turning::RowsToBlocks, turning::BlocksToRows};

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

void BlocksToRows(const uint8_t* const* blocks, size_t positions, uint8_t* rows) {
  kTurning.blocksToRows(blocks, positions, rows);
}

}  // namespace zelk
