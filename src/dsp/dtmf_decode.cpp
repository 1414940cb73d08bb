// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_decode.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "formats/g711.h"
#include "runtime/e1.h"

// From samples to digits:
//
//   sample -> [dial-tone notches] -> 102 collected -> quiet? -> no digit
//                                                       | no
//                                          energy, 8 filters, tests -> hit -> debounce -> digit buffer
//
// All arithmetic is in single precision and in the order written here, without contraction: thresholds are compared
// with its rounded results, so another order is another detector.

namespace zelk {
namespace {

// ITU-T Q.23: the rows' frequencies, then the columns', in Hz, and the digit of each pair, row by row.
constexpr size_t kFilters = 8;
constexpr std::array<float, kFilters> kFrequencies = {697, 770, 852, 941, 1209, 1336, 1477, 1633};
constexpr char kAlphabet[] = "123A456B789C*0#D";

// A steady tone's energy is the square of half its amplitude times the block's samples, so this is an amplitude of
// 175.4: -42 dBm0 a tone (a full-scale sine is 3.14 dBm0, G.711). The administrations of ITU-T Q.24 want levels heard
// down to about -25 dBm; measured here: all digits down to -41 dBm0, none at -44.
constexpr float kAbsoluteThreshold = 8.0e7F;

// A filter's energy is that of the block projected on one frequency, so it is at most 102 times the block's (Cauchy and
// Schwarz). Rounding moves either by a few parts in 10000; half the threshold is therefore on the safe side by far.
constexpr float kQuietBlockEnergy = kAbsoluteThreshold / CDtmfDecode::kBlockSamples / 2;

using FilterBank = std::array<float, kFilters>;

FilterBank MakeCoefficients() {
  constexpr float kPi = 3.14159265358979323846F;
  FilterBank coefficients{};
  for (size_t i = 0; i < kFilters; ++i) {
    // The cosine is rounded once, from double: the single-precision functions of systems differ in the last bit.
    const double angle = 2.0F * kPi * kFrequencies[i] / static_cast<float>(kSampleRate);
    coefficients[i] = 2.0F * static_cast<float>(std::cos(angle));
  }
  return coefficients;
}

const FilterBank& Coefficients() {
  static const FilterBank shared = MakeCoefficients();
  return shared;
}

std::array<float, 256> MakeExpansion() {
  std::array<float, 256> table{};
  for (unsigned code = 0; code < table.size(); ++code) {
    table[code] = ALawToLinear(static_cast<uint8_t>(code));
  }
  return table;
}

const std::array<float, 256>& Expansion() {
  static const std::array<float, 256> shared = MakeExpansion();
  return shared;
}

using Samples = std::array<float, CDtmfDecode::kBlockSamples>;

// Four filters side by side: every lane rounds as a filter of its own would.
using Quad = float __attribute__((vector_size(16)));
constexpr size_t kQuadLanes = 4;

Quad LoadQuad(const float* values) {
  Quad quad;
  std::memcpy(&quad, values, sizeof quad);
  return quad;
}

// The block's energy in an order that is quick to add, good enough to know a quiet block.
bool IsQuiet(const Samples& samples) {
  constexpr size_t kSums = 5;
  constexpr size_t kStride = kSums * kQuadLanes;
  constexpr size_t kWhole = CDtmfDecode::kBlockSamples / kStride * kStride;
  std::array<Quad, kSums> sums{};
  for (size_t i = 0; i < kWhole; i += kStride) {
    for (size_t k = 0; k < kSums; ++k) {
      const Quad values = LoadQuad(&samples[i + k * kQuadLanes]);
      sums[k] += values * values;
    }
  }
  const Quad sum = sums[0] + sums[1] + sums[2] + sums[3] + sums[4];
  float energy = sum[0] + sum[1] + sum[2] + sum[3];
  for (size_t i = kWhole; i < samples.size(); ++i) {
    energy += samples[i] * samples[i];
  }
  return energy < kQuietBlockEnergy;
}

// One step of four filters with their delays.
struct SFilters {
  Quad coefficient;
  Quad newer{};
  Quad older{};

  void Step(Quad sample) {
    const Quad s0 = coefficient * newer - older + sample;
    older = newer;
    newer = s0;
  }
  Quad Energy() const {
    const Quad s0 = coefficient * newer - older;
    return newer * newer + s0 * s0 - coefficient * newer * s0;
  }
};

struct SBlockEnergies {
  Quad rows;
  Quad columns;
  float total;
};

SBlockEnergies Analyse(const Samples& samples) {
  SFilters rows{LoadQuad(&Coefficients()[0])};
  SFilters columns{LoadQuad(&Coefficients()[kQuadLanes])};
  float total = 0;
  for (const float sample : samples) {
    const Quad all = {sample, sample, sample, sample};
    total += sample * sample;
    rows.Step(all);
    columns.Step(all);
  }
  return {rows.Energy(), columns.Energy(), total};
}

// Of four energies the largest, the first of equals.
size_t Strongest(const Quad& energies) {
  size_t best = 0;
  for (size_t i = 1; i < 4; ++i) {
    if (energies[i] > energies[best]) {
      best = i;
    }
  }
  return best;
}

bool StandsOut(const Quad& energies, size_t best, float ratio) {
  for (size_t i = 0; i < 4; ++i) {
    if (i != best && !(energies[best] >= energies[i] * ratio)) {
      return false;
    }
  }
  return true;
}

}  // namespace

CDtmfDecode::CDtmfDecode() {
  Reset();
}

void CDtmfDecode::SetThresholds(const SDtmfSettings& settings) {
  CScopedLock<CMutex> hold(lock);
  thresholds = settings;
}

void CDtmfDecode::Reset() {
  CScopedLock<CMutex> hold(lock);
  filterDialTone = false;
  inDigit = 0;
  lastHit = 0;
  sampleCount = 0;
  lostDigits = 0;
  digitCount = 0;
  digits[0] = 0;
}

void CDtmfDecode::SetDialToneFilter(bool on) {
  CScopedLock<CMutex> hold(lock);
  filterDialTone = on;
}

int32_t CDtmfDecode::LostDigits() const {
  CScopedLock<CMutex> hold(lock);
  return lostDigits;
}

void CDtmfDecode::ProcessBlock(const uint8_t* alaw, uint32_t length) {
  const std::array<float, 256>& expansion = Expansion();
  CScopedLock<CMutex> hold(lock);
  while (length > 0) {
    const uint32_t count = std::min(length, kBlockSamples - sampleCount);
    float* const target = &samples[sampleCount];
    for (uint32_t i = 0; i < count; ++i) {
      target[i] = expansion[alaw[i]];
    }
    alaw += count;
    length -= count;
    Took(count);
  }
}

int32_t CDtmfDecode::Process(int16_t sample) {
  CScopedLock<CMutex> hold(lock);
  samples[sampleCount] = sample;
  Took(1);
  return 0;
}

// The samples have been put after those of the block so far.
void CDtmfDecode::Took(uint32_t count) {
  if (filterDialTone) {
    for (uint32_t i = sampleCount; i < sampleCount + count; ++i) {
      samples[i] = Notched(samples[i]);
    }
  }
  sampleCount += count;
  if (sampleCount == kBlockSamples) {
    EndBlock();
  }
}

float CDtmfDecode::Notched(float sample) {
  float w = 0.98356F * sample + 1.8954426F * notch350.w1 - 0.9691396F * notch350.w2;
  const float without350 = w - 1.925148F * notch350.w1 + notch350.w2;
  notch350 = {w, notch350.w1};
  w = 0.98456F * without350 + 1.8529543F * notch440.w1 - 0.9691396F * notch440.w2;
  const float without440 = w - 1.8819938F * notch440.w1 + notch440.w2;
  notch440 = {w, notch440.w1};
  return without440;
}

void CDtmfDecode::EndBlock() {
  sampleCount = 0;
  Debounce(IsQuiet(samples) ? '\0' : BlockHit());
}

char CDtmfDecode::BlockHit() const {
  const auto [rows, columns, total] = Analyse(samples);
  const size_t bestRow = Strongest(rows);
  const size_t bestColumn = Strongest(columns);
  const float r = rows[bestRow];
  const float c = columns[bestColumn];
  const bool loud = r >= kAbsoluteThreshold && c >= kAbsoluteThreshold;
  const bool balanced = r * thresholds.reverseTwist > c && c * thresholds.normalTwist > r;
  if (loud && balanced && StandsOut(columns, bestColumn, thresholds.columnPeak) &&
      StandsOut(rows, bestRow, thresholds.rowPeak) && r + c > thresholds.totalEnergy * total) {
    return kAlphabet[bestRow * 4 + bestColumn];
  }
  return 0;
}

// A change of the held digit takes two blocks that agree; a hit that comes alone counts as silence for the next block.
void CDtmfDecode::Debounce(char hit) {
  if (hit != inDigit && lastHit != inDigit) {
    if (hit != 0 && hit == lastHit) {
      StoreDigit(hit);
    } else {
      hit = 0;
    }
    inDigit = hit;
  }
  lastHit = hit;
}

void CDtmfDecode::StoreDigit(char digit) {
  if (digitCount == kDigitRoom) {
    ++lostDigits;
    return;
  }
  digits[digitCount++] = digit;
  digits[digitCount] = 0;
}

char CDtmfDecode::TakeDigit() {
  CScopedLock<CMutex> hold(lock);
  if (digitCount == 0) {
    return 0;
  }
  const char oldest = digits[0];
  std::memmove(digits.data(), digits.data() + 1, digitCount);
  --digitCount;
  return oldest;
}

}  // namespace zelk
