// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_decode.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "dsp/dtmf_decision.h"

// From samples to digits:
//
//   A-law bytes -> 102 collected -> quiet? -> no digit
//                                     | no
//                        energy, 8 filters, tests -> hit -> debounce -> digit buffer
//                                ^
//   linear samples, [dial-tone notches], one by one
//
// All arithmetic is in single precision and in the order written here, without contraction: thresholds are compared
// with its rounded results, so another order is another detector.

namespace zelk {
namespace {

// Four filters side by side: every lane rounds as a filter of its own would.
using Quad = float __attribute__((vector_size(16)));
static_assert(sizeof(Quad) == sizeof(ToneEnergies));

Quad LoadQuad(const float* values) {
  Quad quad;
  std::memcpy(&quad, values, sizeof quad);
  return quad;
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
  ToneEnergies Energies() const {
    const Quad s0 = coefficient * newer - older;
    const Quad energy = newer * newer + s0 * s0 - coefficient * newer * s0;
    ToneEnergies result;
    std::memcpy(&result, &energy, sizeof energy);
    return result;
  }
};

// All eight filters over one block.
char DigitOfBlock(const uint8_t* block, const SDtmfSettings& thresholds) {
  const SDtmfTables& tables = DtmfTables();
  SFilters rows{LoadQuad(&tables.coefficients[0])};
  SFilters columns{LoadQuad(&tables.coefficients[kTonesOfGroup])};
  float total = 0;
  for (size_t i = 0; i < kDtmfBlock; ++i) {
    const float sample = tables.expansion[block[i]];
    const Quad all = {sample, sample, sample, sample};
    total += sample * sample;
    rows.Step(all);
    columns.Step(all);
  }
  return DigitOf(rows.Energies(), columns.Energies(), total, thresholds);
}

}  // namespace

void CDtmfDecode::SetThresholds(const SDtmfSettings& settings) {
  CScopedLock<CMutex> hold(lock);
  orders.setThresholds = true;
  orders.thresholds = settings;
  hasOrders.store(true, std::memory_order_release);
}

void CDtmfDecode::Reset() {
  CScopedLock<CMutex> hold(lock);
  orders.reset = true;
  orders.setFilter = false;
  hasOrders.store(true, std::memory_order_release);
}

void CDtmfDecode::SetDialToneFilter(bool on) {
  CScopedLock<CMutex> hold(lock);
  orders.setFilter = true;
  orders.filterDialTone = on;
  hasOrders.store(true, std::memory_order_release);
}

int32_t CDtmfDecode::LostDigits() const {
  CScopedLock<CMutex> hold(lock);
  return orders.reset ? 0 : lostDigits.load(std::memory_order_relaxed);
}

void CDtmfDecode::Obey() {
  CScopedLock<CMutex> hold(lock);
  if (orders.reset) {
    filterDialTone = false;
    oneByOne = false;
    running = {};
    inDigit = 0;
    lastHit = 0;
    sampleCount = 0;
    lostDigits.store(0, std::memory_order_relaxed);
    digitCount = 0;
    digits[0] = 0;
  }
  if (orders.setThresholds)
    thresholds = orders.thresholds;
  if (orders.setFilter) {
    if (orders.filterDialTone)
      RunOneByOne();
    filterDialTone = orders.filterDialTone;
  }
  orders = {};
  hasOrders.store(false, std::memory_order_relaxed);
}

void CDtmfDecode::ProcessBlock(const uint8_t* alaw, uint32_t length) {
  if (HasOrders())
    Obey();
  while (length > 0) {
    const uint32_t count = std::min(length, kBlockSamples - sampleCount);
    Append(alaw, count);
    alaw += count;
    length -= count;
  }
}

int32_t CDtmfDecode::Process(int16_t sample) {
  if (HasOrders())
    Obey();
  RunOneByOne();
  Step(sample);
  return 0;
}

// At most what the current block lacks.
void CDtmfDecode::Append(const uint8_t* alaw, uint32_t count) {
  if (oneByOne) {
    for (uint32_t i = 0; i < count; ++i)
      Step(DtmfTables().expansion[alaw[i]]);
    return;
  }
  isTailSteady = false;
  std::memmove(tail.data(), tail.data() + count, kTail - count);
  std::memcpy(tail.data() + kTail - count, alaw, count);
  loudest = UINT8_MAX;
  sampleCount = static_cast<uint8_t>(sampleCount + count);
  if (sampleCount < kBlockSamples)
    return;
  sampleCount = 0;
  const uint8_t* block = tail.data() + kTail - kBlockSamples;
  Debounce(DtmfEnergy(block) <= kQuietEnergy ? '\0' : DigitOfBlock(block, thresholds));
}

// From here to the end of the block each sample is filtered as it comes: it is none that an A-law byte stands for.
void CDtmfDecode::RunOneByOne() {
  if (oneByOne)
    return;
  oneByOne = true;
  const uint32_t collected = std::exchange(sampleCount, uint8_t{0});
  for (uint32_t i = kTail - collected; i < kTail; ++i)
    Step(DtmfTables().expansion[tail[i]]);
}

void CDtmfDecode::Step(float sample) {
  if (filterDialTone)
    sample = Notched(sample);
  const Quad all = {sample, sample, sample, sample};
  for (size_t group = 0; group < 2; ++group) {
    const size_t at = group * kTonesOfGroup;
    SFilters filters{LoadQuad(&DtmfTables().coefficients[at]), LoadQuad(&running.newer[at]),
                     LoadQuad(&running.older[at])};
    filters.Step(all);
    std::memcpy(&running.newer[at], &filters.newer, sizeof(Quad));
    std::memcpy(&running.older[at], &filters.older, sizeof(Quad));
  }
  running.total += sample * sample;
  if (++sampleCount == kBlockSamples)
    EndRunning();
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

void CDtmfDecode::EndRunning() {
  std::array<ToneEnergies, 2> energies;
  for (size_t group = 0; group < energies.size(); ++group) {
    const size_t at = group * kTonesOfGroup;
    energies[group] =
        SFilters{LoadQuad(&DtmfTables().coefficients[at]), LoadQuad(&running.newer[at]), LoadQuad(&running.older[at])}
            .Energies();
  }
  const char hit = DigitOf(energies[0], energies[1], running.total, thresholds);
  running = {};
  sampleCount = 0;
  oneByOne = filterDialTone;
  Debounce(hit);
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
    lostDigits.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  digits[digitCount++] = digit;
  digits[digitCount] = 0;
}

char CDtmfDecode::TakeOldest() {
  if (HasOrders())
    Obey();
  if (digitCount == 0)
    return 0;
  const char oldest = digits[0];
  std::memmove(digits.data(), digits.data() + 1, digitCount);
  --digitCount;
  return oldest;
}

}  // namespace zelk
