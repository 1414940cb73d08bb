#include "stream/dtmf_decode.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "dtmf_signals.h"
#include "formats/g711.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

using namespace dtmf;

TEST(DtmfDecode, ReportsEachOfTheSixteenDigitsOnce) {
  for (const char digit : kDigits) {
    Signal signal;
    AddDigit(signal, digit, 320);
    AddSilence(signal, 320);
    EXPECT_EQ(Decode(signal), std::string(1, digit));
  }
}

TEST(DtmfDecode, ReportsADigitAtTheEndOfItsSecondWholeBlock) {
  Signal signal;
  AddDigit(signal, '6', 320);
  CDtmfDecode decoder;
  for (size_t i = 0; i < 203; ++i) {
    decoder.Process(signal[i]);
  }
  EXPECT_EQ(decoder.TakeDigit(), 0);
  decoder.Process(signal[203]);
  EXPECT_EQ(decoder.TakeDigit(), '6');
  for (size_t i = 204; i < signal.size(); ++i) {
    decoder.Process(signal[i]);
  }
  EXPECT_EQ(decoder.TakeDigit(), 0);
}

TEST(DtmfDecode, DigitOfOneBlockIsNotReported) {
  Signal signal;
  AddDigit(signal, '6', kBlock);
  AddSilence(signal, 5 * kBlock);
  EXPECT_EQ(Decode(signal), "");
}

TEST(DtmfDecode, DigitHeldForASecondIsReportedOnce) {
  Signal signal;
  AddDigit(signal, '0', 8000);
  EXPECT_EQ(Decode(signal), "0");
}

TEST(DtmfDecode, OneSilentBlockDoesNotEndADigitTwoDo) {
  Signal signal;
  AddDigit(signal, '5', 3 * kBlock);
  AddSilence(signal, kBlock);
  AddDigit(signal, '5', 3 * kBlock);
  EXPECT_EQ(Decode(signal), "5");
  AddSilence(signal, 2 * kBlock);
  AddDigit(signal, '5', 2 * kBlock);
  EXPECT_EQ(Decode(signal), "55");
}

TEST(DtmfDecode, AnotherDigitOfTwoBlocksReplacesTheHeldOneWithoutSilenceBetween) {
  Signal signal;
  AddDigit(signal, '1', 3 * kBlock);
  AddDigit(signal, '2', kBlock);
  EXPECT_EQ(Decode(signal), "1");
  AddDigit(signal, '2', kBlock);
  EXPECT_EQ(Decode(signal), "12");
}

// Q.24: at most 40 ms of signal and 40 ms of pause must be enough, wherever they fall among the blocks; the audio comes
// as A-law in blocks of 20 ms.
TEST(DtmfDecode, FortyMillisecondsOnAndOffAreEnoughAtEveryPhase) {
  for (size_t phase = 0; phase < kBlock; ++phase) {
    Signal signal;
    AddSilence(signal, phase);
    for (const char digit : kDigits + kDigits) {
      AddDigit(signal, digit, 320, 4000, 4000);
      AddSilence(signal, 320);
    }
    signal.resize((signal.size() + 159) / 160 * 160);
    CDtmfDecode decoder;
    decoder.SetThresholds({});
    std::string digits;
    for (size_t i = 0; i < signal.size(); i += 160) {
      std::array<uint8_t, 160> alaw;
      for (size_t k = 0; k < 160; ++k) {
        alaw[k] = LinearToALaw(signal[i + k]);
      }
      decoder.ProcessBlock(alaw.data(), 160);
      digits += TakeAll(decoder);
    }
    ASSERT_EQ(digits, kDigits + kDigits) << "phase " << phase;
  }
}

// Q.24: a signal of less than 20 ms or so must not count; two blocks are 25.5 ms.
TEST(DtmfDecode, TwentyMillisecondsAreNeverADigit) {
  for (size_t phase = 0; phase < kBlock; ++phase) {
    Signal signal;
    AddSilence(signal, phase);
    AddDigit(signal, '9', 160, 4000, 4000);
    AddSilence(signal, 4 * kBlock);
    ASSERT_EQ(Decode(signal), "") << "phase " << phase;
  }
}

// Q.24: frequencies within 1.5 % are valid.
TEST(DtmfDecode, TakesFrequenciesOnePointFivePercentOff) {
  for (size_t index = 0; index < 16; ++index) {
    for (const double shift : {0.985, 1.015}) {
      EXPECT_EQ(DigitOf(kRows[index / 4] * shift, kColumns[index % 4] * shift, 2000, 2000), kDigits.substr(index, 1))
          << shift;
    }
  }
}

// Energy of a steady tone of amplitude A over a block: (102 A / 2) squared, so 8.0e7 is reached at A = 175.4.
TEST(DtmfDecode, LevelsDownToTheAbsoluteThresholdAreTaken) {
  EXPECT_EQ(DigitOf(770, 1477, 190, 190), "6");
  EXPECT_EQ(DigitOf(770, 1477, 160, 190), "");
  EXPECT_EQ(DigitOf(770, 1477, 190, 160), "");
  EXPECT_EQ(DigitOf(770, 1477, 160, 160), "");
  EXPECT_EQ(DigitOf(770, 1477, 16000, 16000), "6");
}

TEST(DtmfDecode, ColumnTooStrongFailsByReverseTwist) {
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

TEST(DtmfDecode, RowTooStrongFailsByNormalTwist) {
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

TEST(DtmfDecode, HasThresholdsOfItsOwnUntilTheyAreSet) {
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

TEST(DtmfDecode, ForeignEnergyEndsADigitByTheTotalEnergyTest) {
  for (const auto& [amplitude, expected] : {std::pair{500.0, "8"}, std::pair{900.0, ""}}) {
    Signal signal;
    AddDigit(signal, '8', 4 * kBlock);
    AddTone(signal, 0, signal.size(), 2900, amplitude);
    EXPECT_EQ(Decode(signal), expected);
  }
}

TEST(DtmfDecode, SecondToneInTheSameGroupFailsByThePeakTests) {
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
TEST(DtmfDecode, EqualEnergiesSelectTheLowerFrequency) {
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

TEST(DtmfDecode, The129thDigitNotTakenIsLost) {
  CDtmfDecode decoder;
  Signal signal;
  for (size_t i = 0; i < 129; ++i) {
    AddDigit(signal, kDigits[i % 16], 2 * kBlock);
    AddSilence(signal, 2 * kBlock);
  }
  for (const int16_t sample : signal) {
    decoder.Process(sample);
  }
  EXPECT_EQ(decoder.LostDigits(), 1);
  std::string expected;
  for (size_t i = 0; i < 128; ++i) {
    expected += kDigits[i % 16];
  }
  EXPECT_EQ(TakeAll(decoder), expected);
  Signal more;
  AddDigit(more, '#', 2 * kBlock);
  EXPECT_EQ(Decode(decoder, more), "#");
  decoder.Reset();
  EXPECT_EQ(decoder.LostDigits(), 0);
}

TEST(DtmfDecode, ResetForgetsDigitsBlockAndHeldDigit) {
  CDtmfDecode decoder;
  Signal signal;
  AddDigit(signal, '4', 3 * kBlock - 1);
  for (const int16_t sample : signal) {
    decoder.Process(sample);
  }
  decoder.Reset();
  EXPECT_EQ(decoder.TakeDigit(), 0);
  Signal again;
  AddDigit(again, '4', 2 * kBlock - 1);
  EXPECT_EQ(Decode(decoder, again), "");  // the block begins anew
  EXPECT_EQ(Decode(decoder, Signal(1, again[0])), "4");
}

TEST(DtmfDecode, DialToneFilterUncoversADigitAndAResetTurnsItOff) {
  Signal signal;
  AddTone(signal, 0, 4000, 350, 1200);
  AddTone(signal, 0, 4000, 440, 1200);
  AddTone(signal, 2000, 1000, 770, 1000);
  AddTone(signal, 2000, 1000, 1336, 1000);
  CDtmfDecode decoder;
  EXPECT_EQ(Decode(decoder, signal), "");
  decoder.SetDialToneFilter(true);
  EXPECT_EQ(Decode(decoder, signal), "5");
  decoder.Reset();
  EXPECT_EQ(Decode(decoder, signal), "");
}

TEST(DtmfDecode, ALawBlocksOfAnyLengthGiveWhatTheirSamplesGive) {
  Signal signal;
  for (const char digit : kDigits) {
    AddDigit(signal, digit, 400);
    AddSilence(signal, 250);
  }
  std::vector<uint8_t> alaw;
  Signal expanded;
  for (const int16_t sample : signal) {
    alaw.push_back(LinearToALaw(sample));
    expanded.push_back(ALawToLinear(alaw.back()));
  }
  for (const uint32_t length : {1U, 7U, 101U, 102U, 103U, 160U, 1000U}) {
    CDtmfDecode decoder;
    for (uint32_t i = 0; i < alaw.size(); i += length) {
      decoder.ProcessBlock(&alaw[i], std::min(length, static_cast<uint32_t>(alaw.size()) - i));
    }
    EXPECT_EQ(TakeAll(decoder), kDigits) << length;
  }
  CDtmfDecode one;
  EXPECT_EQ(Decode(one, expanded), kDigits);
}

TEST(DtmfDecode, AllocatesNothing) {
  CDtmfDecode decoder;
  Signal signal;
  AddDigit(signal, '7', 160);
  std::array<uint8_t, 160> alaw;
  for (size_t i = 0; i < alaw.size(); ++i) {
    alaw[i] = LinearToALaw(signal[i]);
  }
  const uint64_t before = support::AllocationCount();
  for (int i = 0; i < 10; ++i) {
    decoder.ProcessBlock(alaw.data(), 160);
    decoder.TakeDigit();
  }
  EXPECT_EQ(support::AllocationCount(), before);
}

// A reset falls between two delivered blocks, wherever it comes: a digit that lies within one is found each time, and
// nothing else ever is.
TEST(DtmfDecode, MayBeResetWhileItListens) {
  CDtmfDecode decoder;
  Signal signal;
  AddDigit(signal, '7', 4 * kBlock);
  AddSilence(signal, 4 * kBlock);
  std::vector<uint8_t> alaw;
  for (const int16_t sample : signal) {
    alaw.push_back(LinearToALaw(sample));
  }
  std::atomic<bool> done{false};
  std::atomic<int> resets{0};
  std::thread opener([&] {
    while (!done) {
      decoder.SetThresholds({});
      decoder.Reset();
      ++resets;
      std::this_thread::yield();
    }
  });
  size_t blocks = 0;
  std::string digits;
  for (; blocks < 200 || resets < 200; ++blocks) {
    decoder.ProcessBlock(alaw.data(), static_cast<uint32_t>(alaw.size()));
    digits += TakeAll(decoder);
  }
  done = true;
  opener.join();
  EXPECT_EQ(digits, std::string(digits.size(), '7'));
  EXPECT_LE(digits.size(), blocks);
  decoder.Reset();
  decoder.ProcessBlock(alaw.data(), static_cast<uint32_t>(alaw.size()));
  EXPECT_EQ(TakeAll(decoder), "7");
}

}  // namespace
}  // namespace zelk
