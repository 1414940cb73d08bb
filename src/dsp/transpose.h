// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/instruction_set.h"
#include "runtime/e1.h"

namespace zelk {

// A card's audio stands in two shapes: rows, as packets carry it (one byte of every position per sample time), and
// columns, as channels take it (160 bytes of one position). These turn 160 rows into blocks and back, 16 x 16 bytes at
// a time: a byte costs a twentieth of what it costs one by one.
// positions is a multiple of 32, a trunk's. Thread: any; no state.

constexpr size_t kTurnedTogether = 16;  // positions

// Writes each position's 160 bytes to its block; a null block is left out.
void RowsToBlocks(const uint8_t* rows, size_t positions, uint8_t* const* blocks);
// Finds each position's byte when all its 160 are the same: 0 in `changes` then, anything else otherwise.
void FindSteady(const uint8_t* rows, size_t positions, uint8_t* changes);
// Fills the 160 rows from each position's block. Of 16 positions, from a multiple of 16 on, all blocks are null or
// none: these positions' bytes stay as they are.
void BlocksToRows(const uint8_t* const* blocks, size_t positions, uint8_t* rows);

// The same for one instruction set, which this machine must support.
struct STurning {
  void (*rowsToBlocks)(const uint8_t* rows, size_t positions, uint8_t* const* blocks);
  void (*blocksToRows)(const uint8_t* const* blocks, size_t positions, uint8_t* rows);
  void (*findSteady)(const uint8_t* rows, size_t positions, uint8_t* changes);
};
const STurning& TurningFor(EInstructionSet instructionSet);
extern const STurning kTurningAvx2;  // in its own source

}  // namespace zelk
