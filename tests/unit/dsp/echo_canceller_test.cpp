// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/echo_canceller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>
#include <utility>

#include "echo_signals.h"
#include "formats/g711.h"

namespace zelk {
namespace {

using namespace echo;

TEST(EchoCanceller, NearEndSpeechAlonePassesUnchanged) {
  const Signal near = Line(Speech(3, -18, 1));
  const Signal idle(near.size(), ALawToLinear(0x54));
  const Signal cleaned = Cancel(idle, near);
  EXPECT_NEAR(Dbm0(cleaned, 0, 3), Dbm0(near, 0, 3), 0.1);
  EXPECT_NEAR(Dbm0(Add(cleaned, Line(Speech(3, -18, 1))), 0, 3) - 20 * std::log10(2), Dbm0(near, 0, 3), 0.1);
}

TEST(EchoCanceller, QuietAndLoudNearEndSpeechPassUnchanged) {
  for (const double level : {-45.0, -30.0, -8.0}) {
    const Signal near = Line(Speech(2, level, 2));
    EXPECT_NEAR(Dbm0(Cancel(Signal(near.size(), 8), near), 0, 2), Dbm0(near, 0, 2), 0.5) << level;
  }
}

TEST(EchoCanceller, InDoubleTalkTheNearEndIsHeard) {
  const Signal sent = Line(Speech(8, -16, 3));
  Signal near(static_cast<size_t>(6 * kRate), 0);
  const Signal talk = Speech(2, -16, 4);
  near.insert(near.end(), talk.begin(), talk.end());
  const Signal cleaned = Cancel(sent, Line(Add(Echo(sent, 16), near)));
  EXPECT_NEAR(Dbm0(cleaned, 6, 8), Dbm0(near, 6, 8), 1.5);
  // And it is the near end's sound, not just as much of any: what differs is well below it.
  Signal difference = cleaned;
  for (size_t i = 0; i < difference.size(); ++i)
    difference[i] = static_cast<int16_t>(std::clamp(difference[i] - near[i], -32768, 32767));
  EXPECT_LT(Dbm0(difference, 6, 8), Dbm0(near, 6, 8) - 10);
}

TEST(EchoCanceller, AnyTailIsTaken) {
  const std::array<std::pair<int32_t, int32_t>, 9> tails{{{0, 256},
                                                          {1, 256},
                                                          {8, 256},
                                                          {31, 256},
                                                          {32, 256},
                                                          {128, 1024},
                                                          {1000, 8000},
                                                          {-5, 256},
                                                          {std::numeric_limits<int32_t>::max(), 8192}}};
  const Signal sent = Noise(0.05, -14);
  for (const auto& [tailMs, taps] : tails) {
    const std::unique_ptr<CEchoCanceller> canceller = CEchoCanceller::Create(tailMs);
    ASSERT_NE(canceller, nullptr) << tailMs;
    EXPECT_EQ(canceller->Taps(), taps) << tailMs;
    for (const int16_t sample : sent)
      canceller->Update(sample, static_cast<int16_t>(sample / 2));
  }
}

TEST(EchoCanceller, EveryExtremeSampleIsTaken) {
  const std::unique_ptr<CEchoCanceller> canceller = CEchoCanceller::Create(32);
  std::mt19937 random(4);
  constexpr std::array<int16_t, 6> kExtremes{-32768, 32767, 0, -1, 1, 32635};
  for (int i = 0; i < 8000; ++i)
    canceller->Update(kExtremes[random() % 6], kExtremes[random() % 6]);
  // Silence afterwards comes to silence.
  int16_t last = 1;
  for (int i = 0; i < 2000; ++i)
    last = canceller->Update(8, 8);
  EXPECT_LT(std::abs(int{last}), 100);
}

TEST(EchoCanceller, ProcessWorksOnStridedALawWithIdleBytesAfterTheReference) {
  const std::unique_ptr<CEchoCanceller> strided = CEchoCanceller::Create(32);
  const std::unique_ptr<CEchoCanceller> single = CEchoCanceller::Create(32);
  std::mt19937 random(4);
  std::vector<uint8_t> received(40 * 32);
  std::vector<uint8_t> sent(25 * 32);
  for (uint8_t& byte : received)
    byte = static_cast<uint8_t>(random());
  for (uint8_t& byte : sent)
    byte = static_cast<uint8_t>(random());
  std::vector<uint8_t> expected = received;
  for (size_t i = 0; i < 40; ++i) {
    const int16_t reference = ALawToLinear(i < 25 ? sent[i * 32 + 3] : uint8_t{0x54});
    uint8_t& byte = expected[i * 32 + 3];
    byte = LinearToALaw(single->Update(reference, ALawToLinear(byte)));
  }
  strided->Process(received.data() + 3, sent.data() + 3, 40, 25, 32);
  EXPECT_EQ(received, expected);
}

TEST(EchoCanceller, CancellersOnOneMemoryHaveNothingElseInCommon) {
  for (const int32_t tailMs : {32, 33, 128, 1024}) {
    const CEchoCanceller::Memory memory = CEchoCanceller::NewMemory(3, tailMs);
    ASSERT_NE(memory, nullptr);
    std::vector<std::unique_ptr<CEchoCanceller>> together;
    std::vector<std::unique_ptr<CEchoCanceller>> alone;
    std::vector<Signal> sent;
    std::vector<Signal> received;
    for (unsigned i = 0; i < 3; ++i) {
      together.push_back(std::make_unique<CEchoCanceller>(tailMs, &memory[i * CEchoCanceller::MemoryBytes(tailMs)]));
      alone.push_back(CEchoCanceller::Create(tailMs));
      sent.push_back(Noise(2, -12, i + 1));
      received.push_back(Echo(sent.back(), 5 + 3 * i));
    }
    for (size_t at = 0; at < sent[0].size(); ++at) {
      for (size_t i = 0; i < 3; ++i)
        ASSERT_EQ(together[i]->Update(sent[i][at], received[i][at]), alone[i]->Update(sent[i][at], received[i][at]))
            << tailMs << " ms, canceller " << i << ", sample " << at;
    }
  }
}

TEST(EchoCanceller, NothingIsPrinted) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Cancel(Noise(0.5, -10), Noise(0.5, -10, 2));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace zelk
