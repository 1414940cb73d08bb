// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_filters.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "dsp/dtmf_lanes.h"
#include "formats/g711.h"
#include "runtime/e1.h"

namespace zelk {
static_assert(kDelivered == kBlockBytes);

namespace {

// ITU-T Q.23: the rows' frequencies, then the columns', in Hz.
constexpr float kFrequencies[2 * kTonesOfGroup] = {697, 770, 852, 941, 1209, 1336, 1477, 1633};

void MakeWaves(double frequency, int16_t* cosines, int16_t* sines) {
  for (size_t i = 0; i < kDtmfBlock / 2; ++i) {
    const double fromMiddle = static_cast<double>(i) - (kDtmfBlock - 1) / 2.0;
    const double angle = 2 * std::numbers::pi * frequency * fromMiddle / kSampleRate;
    cosines[i] = static_cast<int16_t>(std::lround(4096 * std::cos(angle)));
    sines[i] = static_cast<int16_t>(std::lround(4096 * std::sin(angle)));
  }
}

SDtmfTables MakeTables() {
  constexpr float kPi = 3.14159265358979323846F;
  SDtmfTables tables{};
  for (size_t i = 0; i < 2 * kTonesOfGroup; ++i) {
    // The cosine is rounded once, from double: the single-precision functions of systems differ in the last bit.
    const double angle = 2.0F * kPi * kFrequencies[i] / static_cast<float>(kSampleRate);
    tables.coefficients[i] = 2.0F * static_cast<float>(std::cos(angle));
  }
  for (unsigned code = 0; code < 256; ++code) {
    const int16_t value = ALawToLinear(static_cast<uint8_t>(code));
    tables.expansion[code] = value;
    tables.eighths[code] = static_cast<int16_t>(value / 8);
  }
  for (size_t i = 0; i < kTonesOfGroup; ++i)
    MakeWaves(kFrequencies[kTonesOfGroup + i], tables.cosines[i], tables.sines[i]);
  return tables;
}

// The forms for machines of which nothing is known: a block and a sample at a time.
struct SFilterGroup {
  explicit SFilterGroup(const float* coefficients) {
    for (size_t tone = 0; tone < kTonesOfGroup; ++tone)
      coefficient[tone] = coefficients[tone];
  }
  void Step(float x) {
    for (size_t tone = 0; tone < kTonesOfGroup; ++tone) {
      const float s0 = coefficient[tone] * newer[tone] - older[tone] + x;
      older[tone] = newer[tone];
      newer[tone] = s0;
    }
  }
  void End(float (*energies)[kMostLanes]) const {
    for (size_t tone = 0; tone < kTonesOfGroup; ++tone) {
      const float s1 = newer[tone];
      const float s0 = coefficient[tone] * s1 - older[tone];
      energies[tone][0] = s1 * s1 + s0 * s0 - coefficient[tone] * s1 * s0;
    }
  }

  float coefficient[kTonesOfGroup];
  float newer[kTonesOfGroup] = {};
  float older[kTonesOfGroup] = {};
};

void RunOne(const uint8_t* const* blocks, const SDtmfTables& tables, SLaneEnergies& result) {
  SFilterGroup rows(tables.coefficients);
  SFilterGroup columns(tables.coefficients + kTonesOfGroup);
  float total = 0;
  for (size_t i = 0; i < kDtmfBlock; ++i) {
    const float x = tables.expansion[blocks[0][i]];
    total += x * x;
    rows.Step(x);
    columns.Step(x);
  }
  rows.End(result.rows);
  columns.End(result.columns);
  result.totals[0] = total;
}

// A look at the columns costs as much as the filters here: whatever is not quiet may hold a digit.
void GlanceAtEnergies(const uint8_t* const* blocks, size_t count, const SDtmfTables&, SDtmfGlance* glances) {
  for (size_t i = 0; i < count; ++i) {
    glances[i].energy = DtmfEnergy(blocks[i]);
    for (float& column : glances[i].columns)
      column = std::numeric_limits<float>::infinity();
  }
}

uint8_t LoudestOne(const uint8_t* alaw) {
  uint8_t loudest = 0;
  for (size_t i = 0; i < kDelivered; ++i)
    loudest = std::max<uint8_t>(loudest, (alaw[i] ^ 0x55) & 0x7F);
  return loudest;
}

constexpr SDtmfFilters kPlainFilters{1, RunOne, GlanceAtEnergies, LoudestOne};
constexpr SDtmfFilters kBaselineFilters{vectors::kLanes, vectors::RunLanes, vectors::Glance, vectors::LoudestOf};

}  // namespace

const SDtmfTables& DtmfTables() {
  static const SDtmfTables shared = MakeTables();
  return shared;
}

uint32_t DtmfEnergy(const uint8_t* block) {
  const SDtmfTables& tables = DtmfTables();
  uint32_t energy = 0;
  for (size_t i = 0; i < kDtmfBlock; ++i) {
    const int32_t value = tables.eighths[block[i]];
    energy += static_cast<uint32_t>(value * value);
  }
  return energy;
}

const SDtmfFilters& DtmfFilters(EInstructionSet instructionSet) {
  switch (instructionSet) {
    case EInstructionSet::kAvx2:
      return kDtmfFiltersAvx2;
    case EInstructionSet::kBaseline:
      return kBaselineFilters;
    case EInstructionSet::kPlain:
      break;
  }
  return kPlainFilters;
}

}  // namespace zelk
