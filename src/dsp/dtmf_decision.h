// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>

#include "dsp/dtmf_filters.h"
#include "runtime/config.h"

namespace zelk {

// From a block's energies to its digit: the tests of level, twist, peaks and total energy. Rounded results are
// compared, so the order of the arithmetic is part of the detector. Thread: any; no state.
using ToneEnergies = std::array<float, kTonesOfGroup>;

// A steady tone's energy is the square of half its amplitude times the block's samples, so this is an amplitude of
// 175.4: -42 dBm0 a tone (a full-scale sine is 3.14 dBm0, G.711). The administrations of ITU-T Q.24 want levels heard
// down to about -25 dBm; measured here: all digits down to -41 dBm0, none at -44.
constexpr float kAbsoluteThreshold = 8.0e7F;

// The strongest tone, the first of equals; kTonesOfGroup unless it stands out from the others by the ratio.
inline size_t OutstandingTone(const ToneEnergies& energies, float ratio) {
  size_t best = 0;
  for (size_t i = 1; i < kTonesOfGroup; ++i)
    best = energies[i] > energies[best] ? i : best;
  for (size_t i = 0; i < kTonesOfGroup; ++i) {
    if (i != best && !(energies[best] >= energies[i] * ratio))
      return kTonesOfGroup;
  }
  return best;
}

// What the filters' result for a column lies between, by what a glance says: the margins are several times what the
// glance and the filters' rounding are off.
inline float AtMost(const SDtmfGlance& glance, size_t column) {
  return 1.01F * kGlanceUnit * glance.columns[column] + 0.01F * 64 * static_cast<float>(glance.energy);
}
inline float AtLeast(const SDtmfGlance& glance, size_t column) {
  return 0.99F * kGlanceUnit * glance.columns[column] - 0.01F * 64 * static_cast<float>(glance.energy);
}

// False only for a block in which the filters would find no digit. A digit's column, with a row that is weaker than
// normalTwist columns, must bring the sum of both over the total's share, and stand out. If that is not the column
// which looks strongest, the two differ by less than the margins, and what the one may do the other may.
inline bool MayHoldDigit(const SDtmfGlance& glance, const SDtmfSettings& thresholds) {
  if (glance.energy <= kQuietEnergy)
    return false;
  size_t best = 0;
  for (size_t i = 1; i < kTonesOfGroup; ++i)
    best = glance.columns[i] > glance.columns[best] ? i : best;
  const float column = AtMost(glance, best);
  const float both = column * (1 + thresholds.normalTwist) * 1.001F;
  if (column < kAbsoluteThreshold || both <= thresholds.totalEnergy * 64 * static_cast<float>(glance.energy))
    return false;
  for (size_t i = 0; i < kTonesOfGroup; ++i) {
    if (i != best && thresholds.columnPeak > 0 && column < AtLeast(glance, i) * thresholds.columnPeak)
      return false;
  }
  return true;
}

// The digit, or 0.
inline char DigitOf(const ToneEnergies& rows, const ToneEnergies& columns, float total,
                    const SDtmfSettings& thresholds) {
  constexpr char kAlphabet[] = "123A456B789C*0#D";
  const size_t row = OutstandingTone(rows, thresholds.rowPeak);
  const size_t column = OutstandingTone(columns, thresholds.columnPeak);
  if (row == kTonesOfGroup || column == kTonesOfGroup)
    return 0;
  const float r = rows[row];
  const float c = columns[column];
  const bool loud = r >= kAbsoluteThreshold && c >= kAbsoluteThreshold;
  const bool balanced = r * thresholds.reverseTwist > c && c * thresholds.normalTwist > r;
  return loud && balanced && r + c > thresholds.totalEnergy * total ? kAlphabet[row * kTonesOfGroup + column] : '\0';
}

}  // namespace zelk
