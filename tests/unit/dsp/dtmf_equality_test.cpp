// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>

#include "dsp/dtmf_decode.h"
#include "dtmf_signals.h"
#include "formats/g711.h"

// The product's detector against the literal form: the same decisions on every kind of signal.
namespace zelk {
namespace {

using namespace dtmf;

// The same as A-law bytes, which may not be what the samples were.
void ExpectBytesSameAsLiteral(const Signal& signal, const SDtmfSettings& settings) {
  CLiteralDetector literal(settings);
  CDtmfDecode decoder;
  decoder.SetThresholds(settings);
  std::string taken;
  for (size_t i = 0; i < signal.size(); ++i) {
    const uint8_t byte = LinearToALaw(signal[i]);
    literal.Process(ALawToLinear(byte));
    decoder.ProcessBlock(&byte, 1);
    if ((i + 1) % kBlock == 0) {
      taken += TakeAll(decoder);
      ASSERT_EQ(taken, literal.digits) << "after byte " << i + 1;
    }
  }
}

// Both detectors, digit by digit: the same digits after every single sample.
void ExpectSameAsLiteral(const Signal& signal, const SDtmfSettings& settings = {}, bool filterDialTone = false) {
  CLiteralDetector literal(settings);
  literal.filterDialTone = filterDialTone;
  CDtmfDecode decoder;
  decoder.SetThresholds(settings);
  decoder.SetDialToneFilter(filterDialTone);
  std::string taken;
  for (size_t i = 0; i < signal.size(); ++i) {
    literal.Process(signal[i]);
    decoder.Process(signal[i]);
    if ((i + 1) % kBlock == 0) {
      taken += TakeAll(decoder);
      ASSERT_EQ(taken, literal.digits) << "after sample " << i + 1;
    }
  }
  ExpectBytesSameAsLiteral(signal, settings);
}

TEST(DtmfEquality, EveryOrderOfTwoDigitsAndSilenceIsDebouncedAlike) {
  std::array<Signal, 3> blocks;
  AddSilence(blocks[0], kBlock);
  AddDigit(blocks[1], '1', kBlock);
  AddDigit(blocks[2], 'D', kBlock);
  constexpr size_t kLength = 7;
  size_t sequences = 1;
  for (size_t i = 0; i < kLength; ++i) {
    sequences *= 3;
  }
  for (size_t sequence = 0; sequence < sequences; ++sequence) {
    Signal signal;
    for (size_t i = 0, rest = sequence; i < kLength; ++i, rest /= 3) {
      signal.insert(signal.end(), blocks[rest % 3].begin(), blocks[rest % 3].end());
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal)) << sequence;
  }
}

TEST(DtmfEquality, DecidesAsTheLiteralFormOnNoise) {
  std::mt19937 random(1);
  for (const double level : {5.0, 40.0, 90.0, 130.0, 300.0, 3000.0, 30000.0}) {
    std::normal_distribution<double> noise(0, level);
    Signal signal(200 * kBlock);
    for (int16_t& sample : signal) {
      sample = Clipped(noise(random));
    }
    // Thresholds that noise passes now and then, so that there is something to agree about.
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal, {100, 100, 1.0F, 1.0F, 0.5F}));
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal));
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal, {100, 100, 1.0F, 1.0F, 0.5F}, true));
  }
}

TEST(DtmfEquality, DecidesAsTheLiteralFormAtEveryLevelAroundItsThresholds) {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> ratio(0.2, 5);
  std::uniform_real_distribution<double> shift(0.97, 1.03);
  std::uniform_real_distribution<double> phase(0, 6.28);
  size_t detected = 0;
  for (double amplitude = 20; amplitude < 500; amplitude += 0.5) {
    const size_t index = random() % 16;
    Signal signal;
    AddTone(signal, 0, 2 * kBlock, kRows[index / 4] * shift(random), amplitude, phase(random));
    AddTone(signal, 0, 2 * kBlock, kColumns[index % 4] * shift(random), amplitude * ratio(random), phase(random));
    AddTone(signal, 0, 2 * kBlock, 300 + 100 * phase(random), amplitude * 0.05 * ratio(random));
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal)) << amplitude;
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal, {5, 5, 1, 1, 5})) << amplitude;
    detected += Decode(signal).size();
  }
  EXPECT_GT(detected, 100U);
  EXPECT_LT(detected, 800U);
}

// The quietest blocks that can reach the absolute threshold: all their energy on one row and one column, with every
// other threshold out of the way.
TEST(DtmfEquality, QuietBlocksThatReachTheThresholdAreNotPassedOver) {
  const SDtmfSettings open{1e6F, 1e6F, 0.0F, 0.0F, 0.0F};
  size_t detected = 0;
  for (double amplitude = 150; amplitude < 200; amplitude += 0.25) {
    for (size_t index = 0; index < 16; ++index) {
      Signal signal;
      AddDigit(signal, kDigits[index], 2 * kBlock, amplitude, amplitude);
      ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal, open)) << amplitude;
      detected += Decode(signal, open).size();
    }
  }
  EXPECT_GT(detected, 800U);
  EXPECT_LT(detected, 2400U);
}

TEST(DtmfEquality, DecidesAsTheLiteralFormOnRandomDialling) {
  std::mt19937 random(3);
  Signal signal;
  for (int i = 0; i < 500; ++i) {
    AddDigit(signal, kDigits[random() % 16], random() % 500, static_cast<double>(100 + random() % 4000),
             static_cast<double>(100 + random() % 4000));
    AddSilence(signal, random() % 500);
  }
  std::normal_distribution<double> noise(0, 30);
  for (int16_t& sample : signal) {
    sample = Clipped(sample + noise(random));
  }
  ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal));
  ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal, {}, true));
  EXPECT_GT(Decode(signal).size(), 100U);
}

TEST(DtmfEquality, DecidesAsTheLiteralFormOnFullScaleSquareWaves) {
  for (size_t halfPeriod = 1; halfPeriod < 60; ++halfPeriod) {
    Signal signal(10 * kBlock);
    for (size_t i = 0; i < signal.size(); ++i) {
      signal[i] = i / halfPeriod % 2 == 0 ? 32767 : -32768;
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsLiteral(signal, {1000, 1000, 0.5F, 0.5F, 0.5F}));
  }
}

}  // namespace
}  // namespace zelk
