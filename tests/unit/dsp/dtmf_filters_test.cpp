// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <vector>

#include "dsp/dtmf_decision.h"
#include "dtmf_signals.h"
#include "dtmf_sounds.h"
#include "formats/g711.h"

// Each form of the detector's loops against the plain one, and what a glance claims against the filters.
namespace zelk {
namespace {

using namespace dtmf;

using Block = std::vector<uint8_t>;  // of its own: a byte read beyond it is found out

std::vector<const SDtmfFilters*> VectorForms() {
  std::vector<const SDtmfFilters*> forms;
  for (const auto set : {EInstructionSet::kBaseline, EInstructionSet::kAvx2}) {
    if (IsSupported(set))
      forms.push_back(&DtmfFilters(set));
  }
  return forms;
}

Block BlockOf(const Signal& signal) {
  Block block(kDtmfBlock);
  for (size_t i = 0; i < block.size(); ++i)
    block[i] = LinearToALaw(signal[i]);
  return block;
}

// Square waves of each column's frequency in every phase, as loud as can be: the largest sums that there are.
void AddSquareWaves(std::vector<Block>& blocks) {
  for (const double frequency : kColumns) {
    for (double phase = 0; phase < 6.28; phase += 0.1) {
      Block block(kDtmfBlock);
      for (size_t i = 0; i < block.size(); ++i) {
        const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / 8000 + phase;
        block[i] = std::sin(angle) < 0 ? 0x2A : 0xAA;
      }
      blocks.push_back(block);
    }
  }
}

std::vector<Block> Blocks() {
  std::vector<Block> blocks;
  CLineSounds sounds(5);
  std::array<uint8_t, CLineSounds::kDelivery> delivery{};
  for (size_t i = 0; i < 20000; ++i) {
    sounds.Fill(i % CLineSounds::kLines, delivery.data());
    blocks.emplace_back(delivery.begin(), delivery.begin() + kDtmfBlock);
  }
  AddSquareWaves(blocks);
  for (const int byte : {0x2A, 0xAA, 0x54, 0xD5, 0x00, 0xFF})
    blocks.emplace_back(kDtmfBlock, static_cast<uint8_t>(byte));
  return blocks;
}

SLaneEnergies PlainEnergies(const Block& block) {
  SLaneEnergies energies{};
  const uint8_t* const bytes = block.data();
  DtmfFilters(EInstructionSet::kPlain).run(&bytes, DtmfTables(), energies);
  return energies;
}

SDtmfGlance GlanceAt(const SDtmfFilters& form, const Block& block) {
  SDtmfGlance glance{};
  const uint8_t* const bytes = block.data();
  form.glance(&bytes, 1, DtmfTables(), &glance);
  return glance;
}

uint32_t BitsOf(float value) {
  return std::bit_cast<uint32_t>(value);
}

void ExpectLane(const SLaneEnergies& energies, size_t lane, const Block& block) {
  const SLaneEnergies plain = PlainEnergies(block);
  EXPECT_EQ(BitsOf(energies.totals[lane]), BitsOf(plain.totals[0]));
  for (size_t i = 0; i < kTonesOfGroup; ++i) {
    EXPECT_EQ(BitsOf(energies.rows[i][lane]), BitsOf(plain.rows[i][0]));
    EXPECT_EQ(BitsOf(energies.columns[i][lane]), BitsOf(plain.columns[i][0]));
  }
}

TEST(DtmfFilters, EveryLaneRoundsAsAFilterOfItsOwn) {
  const std::vector<Block> blocks = Blocks();
  for (const SDtmfFilters* form : VectorForms()) {
    for (size_t from = 0; from + form->lanes <= blocks.size(); from += form->lanes) {
      std::array<const uint8_t*, kMostLanes> lanes{};
      for (size_t lane = 0; lane < form->lanes; ++lane)
        lanes[lane] = blocks[from + lane].data();
      SLaneEnergies energies{};
      form->run(lanes.data(), DtmfTables(), energies);
      for (size_t lane = 0; lane < form->lanes; ++lane)
        ExpectLane(energies, lane, blocks[from + lane]);
      ASSERT_FALSE(HasFailure()) << "blocks from " << from;
    }
  }
}

// The literal form's own coefficients and arithmetic: what the plain form is held against.
TEST(DtmfFilters, PlainFormRoundsAsTheLiteralOne) {
  for (const Block& block : Blocks()) {
    CLiteralDetector literal{SDtmfSettings()};
    std::array<float, 8> expected{};
    for (size_t i = 0; i < kDtmfBlock; ++i) {
      if (i + 1 == kDtmfBlock)
        expected = literal.EnergiesAfter(ALawToLinear(block[i]));
      literal.Process(ALawToLinear(block[i]));
    }
    const SLaneEnergies plain = PlainEnergies(block);
    for (size_t i = 0; i < kTonesOfGroup; ++i) {
      ASSERT_EQ(BitsOf(plain.rows[i][0]), BitsOf(expected[i]));
      ASSERT_EQ(BitsOf(plain.columns[i][0]), BitsOf(expected[kTonesOfGroup + i]));
    }
  }
}

TEST(DtmfFilters, GlanceHasTheEnergyAndTheColumnsBetweenItsLimits) {
  for (const Block& block : Blocks()) {
    double energy = 0;
    for (const uint8_t byte : block)
      energy += double{1} * ALawToLinear(byte) * ALawToLinear(byte);
    ASSERT_EQ(DtmfEnergy(block.data()) * 64.0, energy);
    const SLaneEnergies plain = PlainEnergies(block);
    for (const SDtmfFilters* form : VectorForms()) {
      const SDtmfGlance glance = GlanceAt(*form, block);
      ASSERT_EQ(glance.energy * 64.0, energy);
      for (size_t i = 0; i < kTonesOfGroup; ++i) {
        // A tenth of the margin is enough: nothing depends on the last of it.
        const double off = std::abs(double{kGlanceUnit} * glance.columns[i] - plain.columns[i][0]);
        ASSERT_LE(off, 0.001 * plain.columns[i][0] + 0.001 * energy);
        ASSERT_LE(AtLeast(glance, i), plain.columns[i][0]);
        ASSERT_GE(AtMost(glance, i), plain.columns[i][0]);
      }
    }
  }
}

ToneEnergies Lane(const float (&energies)[kTonesOfGroup][kMostLanes]) {
  return {energies[0][0], energies[1][0], energies[2][0], energies[3][0]};
}

// The thresholds that this block just passes; none where nothing would do.
SDtmfSettings Tightest(const ToneEnergies& rows, const ToneEnergies& columns, float total) {
  const auto peakOf = [](const ToneEnergies& energies) {
    ToneEnergies sorted = energies;
    std::sort(sorted.begin(), sorted.end());
    return std::pair(sorted[3], sorted[2] > 0 ? std::nextafter(sorted[3] / sorted[2], 0.0F) : 1.0F);
  };
  const auto [row, rowPeak] = peakOf(rows);
  const auto [column, columnPeak] = peakOf(columns);
  SDtmfSettings settings;
  settings.normalTwist = row / column * 1.000001F;
  settings.reverseTwist = column / row * 1.000001F;
  settings.rowPeak = rowPeak * 0.999999F;
  settings.columnPeak = columnPeak * 0.999999F;
  settings.totalEnergy = (row + column) / total * 0.999999F;
  return settings;
}

TEST(DtmfFilters, GlanceLetsThroughWhatJustPassesEveryThreshold) {
  size_t digits = 0;
  for (const Block& block : Blocks()) {
    const SLaneEnergies plain = PlainEnergies(block);
    const SDtmfSettings settings = Tightest(Lane(plain.rows), Lane(plain.columns), plain.totals[0]);
    if (DigitOf(Lane(plain.rows), Lane(plain.columns), plain.totals[0], settings) == 0)
      continue;
    ++digits;
    for (const SDtmfFilters* form : VectorForms())
      ASSERT_TRUE(MayHoldDigit(GlanceAt(*form, block), settings));
  }
  EXPECT_GT(digits, 5000U);
}

// With all other thresholds out of the way, pairs of tones as weak as can be in the phase in which they add up best.
TEST(DtmfFilters, GlanceLetsThroughTheWeakestPairs) {
  const SDtmfSettings open{1e9F, 1e9F, 0.0F, 0.0F, 0.0F};
  size_t digits = 0;
  size_t left = 0;
  for (double amplitude = 150; amplitude < 200; amplitude += 0.5) {
    for (size_t digit = 0; digit < kDigits.size(); ++digit) {
      Signal signal;
      AddTone(signal, 0, kBlock, kRows[digit / 4], amplitude, amplitude);
      AddTone(signal, 0, kBlock, kColumns[digit % 4], amplitude, 2 * amplitude);
      const Block block = BlockOf(signal);
      const SLaneEnergies plain = PlainEnergies(block);
      const bool isDigit = DigitOf(Lane(plain.rows), Lane(plain.columns), plain.totals[0], open) != 0;
      digits += isDigit ? 1U : 0U;
      for (const SDtmfFilters* form : VectorForms()) {
        const bool mayBe = MayHoldDigit(GlanceAt(*form, block), open);
        ASSERT_TRUE(mayBe || !isDigit);
        left += mayBe ? 0U : 1U;
      }
    }
  }
  EXPECT_GT(digits, 500U);
  EXPECT_GT(left, 100U);
}

// The largest eigenvalue of two sines' and two cosines' products is what kQuietEnergy rests on.
TEST(DtmfFilters, NoPairOfTonesHasMoreOfABlockThanFiftySevenfold) {
  double largest = 0;
  for (size_t digit = 0; digit < kDigits.size(); ++digit) {
    std::array<double, kDtmfBlock> x{};
    x.fill(1);
    double norm = 0;
    for (int turn = 0; turn < 500; ++turn) {
      std::array<double, kDtmfBlock> next{};
      for (const double frequency : {kRows[digit / 4], kColumns[digit % 4]}) {
        double even = 0;
        double odd = 0;
        const double step = 2 * std::numbers::pi * frequency / 8000;
        for (size_t i = 0; i < x.size(); ++i) {
          even += x[i] * std::cos(step * static_cast<double>(i));
          odd += x[i] * std::sin(step * static_cast<double>(i));
        }
        for (size_t i = 0; i < x.size(); ++i)
          next[i] += even * std::cos(step * static_cast<double>(i)) + odd * std::sin(step * static_cast<double>(i));
      }
      norm = 0;
      for (const double value : next)
        norm += value * value;
      norm = std::sqrt(norm);
      for (size_t i = 0; i < x.size(); ++i)
        x[i] = next[i] / norm;
    }
    largest = std::max(largest, norm);
  }
  EXPECT_LT(largest, 57);
  EXPECT_GT(largest, 50);
  EXPECT_LT(largest * 64 * kQuietEnergy, 0.8 * 2 * kAbsoluteThreshold);
}

TEST(DtmfFilters, FindsTheLoudestByteWhereverItIs) {
  std::vector<const SDtmfFilters*> forms = VectorForms();
  forms.push_back(&DtmfFilters(EInstructionSet::kPlain));
  for (const SDtmfFilters* form : forms) {
    for (size_t at = 0; at < kDelivered; ++at) {
      for (unsigned code = 0; code < 256; ++code) {
        std::vector<uint8_t> delivery(kDelivered, 0x50);  // code 5, either sign
        delivery[(at + 80) % kDelivered] = 0xD0;
        delivery[at] = static_cast<uint8_t>(code ^ 0x55);
        ASSERT_EQ(form->loudest(delivery.data()), std::max(5U, code & 0x7F)) << at;
      }
    }
  }
}

TEST(DtmfFilters, QuietCodeIsTheLargestThatMakesAQuietBlock) {
  const auto quiet = [](unsigned code) {
    return DtmfEnergy(Block(kDtmfBlock, static_cast<uint8_t>(code ^ 0x55)).data()) <= kQuietEnergy;
  };
  EXPECT_TRUE(quiet(kQuietCode));
  EXPECT_TRUE(quiet(kQuietCode | 0x80));
  EXPECT_FALSE(quiet(kQuietCode + 1U));
}

}  // namespace
}  // namespace zelk
