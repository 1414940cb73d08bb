// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <utility>

#include "dtmf_signals.h"

// What the digit detector's thresholds let through: levels, twists, frequencies and foreign sounds.
namespace zelk {
namespace {

using namespace dtmf;

// Q.24: frequencies within 1.5 % are valid.
TEST(DtmfThresholds, TakesFrequenciesOnePointFivePercentOff) {
  for (size_t index = 0; index < 16; ++index) {
    for (const double shift : {0.985, 1.015}) {
      EXPECT_EQ(DigitOf(kRows[index / 4] * shift, kColumns[index % 4] * shift, 2000, 2000), kDigits.substr(index, 1))
          << shift;
    }
  }
}

// Energy of a steady tone of amplitude A over a block: (102 A / 2) squared, so 8.0e7 is reached at A = 175.4.
TEST(DtmfThresholds, LevelsDownToTheAbsoluteThresholdAreTaken) {
  EXPECT_EQ(DigitOf(770, 1477, 190, 190), "6");
  EXPECT_EQ(DigitOf(770, 1477, 160, 190), "");
  EXPECT_EQ(DigitOf(770, 1477, 190, 160), "");
  EXPECT_EQ(DigitOf(770, 1477, 160, 160), "");
  EXPECT_EQ(DigitOf(770, 1477, 16000, 16000), "6");
}

TEST(DtmfThresholds, ColumnTooStrongFailsByReverseTwist) {
  const double within = 1000 * std::sqrt(6.5);
  const double beyond = 1000 * std::sqrt(7.5);
  EXPECT_EQ(DigitOf(852, 1336, 1000, within), "8");
  EXPECT_EQ(DigitOf(852, 1336, 1000, beyond), "");
  SDtmfSettings settings;
  settings.normalTwist = 8.5F;
  EXPECT_EQ(DigitOf(852, 1336, 1000, beyond, settings), "");
  settings = {};
  settings.reverseTwist = 8.5F;
  EXPECT_EQ(DigitOf(852, 1336, 1000, beyond, settings), "8");
}

TEST(DtmfThresholds, RowTooStrongFailsByNormalTwist) {
  const double within = 1000 * std::sqrt(6.5);
  const double beyond = 1000 * std::sqrt(7.5);
  EXPECT_EQ(DigitOf(852, 1336, within, 1000), "8");
  EXPECT_EQ(DigitOf(852, 1336, beyond, 1000), "");
  SDtmfSettings settings;
  settings.reverseTwist = 8.5F;
  EXPECT_EQ(DigitOf(852, 1336, beyond, 1000, settings), "");
  settings = {};
  settings.normalTwist = 8.5F;
  EXPECT_EQ(DigitOf(852, 1336, beyond, 1000, settings), "8");
}

TEST(DtmfThresholds, HasThresholdsOfItsOwnUntilTheyAreSet) {
  Signal strongColumn;
  AddDigit(strongColumn, '8', 4 * kBlock, 1000, 1000 * std::sqrt(3.0));
  CDtmfDecode decoder;
  EXPECT_EQ(Decode(decoder, strongColumn), "");  // 2.5
  EXPECT_EQ(Decode(strongColumn), "8");          // 7.0
  Signal strongRow;
  AddDigit(strongRow, '8', 4 * kBlock, 1000 * std::sqrt(5.5), 1000);
  decoder.Reset();
  EXPECT_EQ(Decode(decoder, strongRow), "8");  // 6.3
  Signal noisy;                                // about 41 times its energy in the two tones
  AddDigit(noisy, '8', 4 * kBlock);
  AddTone(noisy, 0, noisy.size(), 2900, 700);
  decoder.Reset();
  EXPECT_EQ(Decode(decoder, noisy), "");  // 42.0
  EXPECT_EQ(Decode(noisy), "8");          // 40.0
}

TEST(DtmfThresholds, ForeignEnergyEndsADigitByTheTotalEnergyTest) {
  for (const auto& [amplitude, expected] : {std::pair{500.0, "8"}, std::pair{900.0, ""}}) {
    Signal signal;
    AddDigit(signal, '8', 4 * kBlock);
    AddTone(signal, 0, signal.size(), 2900, amplitude);
    EXPECT_EQ(Decode(signal), expected);
  }
}

TEST(DtmfThresholds, SecondToneInTheSameGroupFailsByThePeakTests) {
  SDtmfSettings settings;
  settings.totalEnergy = 10;
  const auto withExtra = [&settings](double frequency, double amplitude) {
    Signal signal;
    AddDigit(signal, '1', 4 * kBlock);
    AddTone(signal, 0, signal.size(), frequency, amplitude, 1.9);
    return Decode(signal, settings);
  };
  EXPECT_EQ(withExtra(941, 250), "1");
  EXPECT_EQ(withExtra(941, 550), "");
  EXPECT_EQ(withExtra(1633, 250), "1");
  EXPECT_EQ(withExtra(1633, 550), "");
  settings.rowPeak = 2;
  EXPECT_EQ(withExtra(941, 550), "1");
  EXPECT_EQ(withExtra(1633, 550), "");
  settings.columnPeak = 2;
  EXPECT_EQ(withExtra(1633, 550), "1");
}

// A single impulse at the end of a block has the same energy at every frequency, but for the rounding of each filter.
// Among the impulses are some whose two strongest rows come out equal to the last bit.
TEST(DtmfThresholds, EqualEnergiesSelectTheLowerFrequency) {
  SDtmfSettings settings;
  settings.rowPeak = settings.columnPeak = 0.5F;
  settings.totalEnergy = 1;
  size_t tiesSeen = 0;
  for (int height = 9000; height < 32767; height += 7) {
    Signal signal(2 * kBlock);
    signal[kBlock - 1] = signal[2 * kBlock - 1] = static_cast<int16_t>(height);
    CLiteralDetector filters(settings);
    filters.Process(static_cast<int16_t>(height));
    const std::array<float, 8> e = filters.Energies();
    const auto firstOfLargest = [&e](size_t from) {
      size_t best = from;
      size_t times = 1;
      for (size_t i = from + 1; i < from + 4; ++i) {
        times = e[i] > e[best] ? 1 : times + (e[i] == e[best] ? 1 : 0);
        best = e[i] > e[best] ? i : best;
      }
      return std::pair{best - from, times};
    };
    const auto [row, rowTimes] = firstOfLargest(0);
    const auto [column, columnTimes] = firstOfLargest(4);
    tiesSeen += rowTimes > 1 && columnTimes > 1 ? 1 : 0;
    ASSERT_EQ(Decode(signal, settings), kDigits.substr(row * 4 + column, 1)) << height;
  }
  EXPECT_GT(tiesSeen, 100U);
}

}  // namespace
}  // namespace zelk
