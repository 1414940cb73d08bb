// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/instruction_set.h"
#include "runtime/e1.h"

namespace zelk {

// The digit detector's work on samples, for each instruction set: everything in it that costs time a sample.
// A block here is the 102 A-law bytes of one analysis. Thread: any; constant tables, no state.
constexpr size_t kDtmfBlock = 102;
constexpr size_t kDelivered = kBlockBytes;
constexpr size_t kTonesOfGroup = 4;
constexpr size_t kMostLanes = 8;
constexpr size_t kDtmfHalfRoom = 64;

// What the forms look up.
struct alignas(64) SDtmfTables {
  float coefficients[2 * kTonesOfGroup];  // 2 cos(2 pi f / 8000) of the rows, then of the columns
  float expansion[256];                   // the linear value of each byte
  int16_t eighths[256];                   // the same, divided by 8
  // Of each column's frequency half a block's waves about the block's middle, at an amplitude of 4096, then zeros.
  alignas(64) int16_t cosines[kTonesOfGroup][kDtmfHalfRoom];
  alignas(64) int16_t sines[kTonesOfGroup][kDtmfHalfRoom];
};
const SDtmfTables& DtmfTables();

// Eight filters over some blocks side by side, and the blocks' own energies. Every filter rounds as one of its own,
// stepped sample by sample, would.
struct SLaneEnergies {
  alignas(32) float rows[kTonesOfGroup][kMostLanes];
  alignas(32) float columns[kTonesOfGroup][kMostLanes];
  alignas(32) float totals[kMostLanes];
};

// A block seen roughly: its energy, and the columns', each within 1 % of it and 1 % of the block's.
struct SDtmfGlance {
  uint32_t energy;                           // in units of 64, exact
  alignas(16) float columns[kTonesOfGroup];  // in units of kGlanceUnit
};
constexpr float kGlanceUnit = 64.0F / (4096.0F * 4096.0F);

struct SDtmfFilters {
  size_t lanes;  // blocks that run takes
  void (*run)(const uint8_t* const* blocks, const SDtmfTables& tables, SLaneEnergies& result);
  // A look at each of some blocks.
  void (*glance)(const uint8_t* const* blocks, size_t count, const SDtmfTables& tables, SDtmfGlance* glances);
  // The largest magnitude among a delivered block's 160 bytes: as its code, which is the byte without sign and
  // inversion, 0 to 127.
  uint8_t (*loudest)(const uint8_t* alaw);
};

// A digit needs both its tones at the absolute threshold, 1.6e8 together. The energies of a row and a column together
// are at most 57 times the block's (the largest eigenvalue of their four sines and cosines over 102 samples): 1.2e8
// here. The rounding of the filters moves that by less than a hundredth.
constexpr uint32_t kQuietEnergy = (1U << 21) / 64;
// 102 samples of this magnitude, 136, are quiet, and so is every block without a louder one.
constexpr uint8_t kQuietCode = 8;
static_assert(kDtmfBlock * 136 * 136 <= uint64_t{kQuietEnergy} * 64);

// The form for an instruction set that this machine supports.
const SDtmfFilters& DtmfFilters(EInstructionSet instructionSet);
extern const SDtmfFilters kDtmfFiltersAvx2;  // in its own source

// A block's energy in units of 64, exact.
uint32_t DtmfEnergy(const uint8_t* block);

}  // namespace zelk
