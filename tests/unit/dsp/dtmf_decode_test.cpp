// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_decode.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
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

TEST(DtmfDecode, AnotherDigitReplacesTheHeldOneWithoutSilenceBetween) {
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
