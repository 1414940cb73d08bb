#include "stream/echo_canceller.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "formats/g711.h"

// The two builds of the canceller, by the names that the build gives them.
extern "C" {
void* echo_can_init_base(int taps, int mode);
int echo_can_free_base(void* state);
int16_t echo_can_update_base(void* state, int16_t sent, int16_t received);
void* echo_can_init_avx2(int taps, int mode);
int echo_can_free_avx2(void* state);
int16_t echo_can_update_avx2(void* state, int16_t sent, int16_t received);
}

namespace zelk {
namespace {

using Signal = std::vector<int16_t>;

constexpr double kRate = 8000;
// A sine at full scale is 3.14 dBm0 in A-law.
constexpr double kFullScaleDbm0 = 3.14;

double Rms(const Signal& signal, double from, double to) {
  double sum = 0;
  const auto begin = static_cast<size_t>(from * kRate);
  const auto end = static_cast<size_t>(to * kRate);
  for (size_t i = begin; i < end; ++i)
    sum += double{1} * signal[i] * signal[i];
  return std::sqrt(sum / static_cast<double>(end - begin));
}

double Dbm0(const Signal& signal, double from, double to) {
  return 20 * std::log10(std::max(Rms(signal, from, to), 1e-3) * std::numbers::sqrt2 / 32635) + kFullScaleDbm0;
}

Signal Scaled(const std::vector<double>& shape, double dbm0) {
  double sum = 0;
  for (const double value : shape)
    sum += value * value;
  const double rms = std::sqrt(sum / static_cast<double>(shape.size()));
  const double wanted = 32635 / std::numbers::sqrt2 * std::pow(10, (dbm0 - kFullScaleDbm0) / 20);
  Signal signal;
  for (const double value : shape)
    signal.push_back(static_cast<int16_t>(std::clamp(value * wanted / rms, -32000.0, 32000.0)));
  return signal;
}

Signal Noise(double seconds, double dbm0, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> shape(static_cast<size_t>(seconds * kRate));
  for (double& value : shape)
    value = normal(random);
  return Scaled(shape, dbm0);
}

// Voiced and unvoiced pieces through two resonances, syllables of 250 ms and a pause in every fourth.
Signal Speech(double seconds, double dbm0, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> shape(static_cast<size_t>(seconds * kRate));
  std::array<double, 4> state{};
  double phase = 0;
  for (size_t i = 0; i < shape.size(); ++i) {
    const double t = static_cast<double>(i) / kRate;
    const auto syllable = static_cast<unsigned>(t / 0.25) + seed;
    const double envelope = syllable % 4 == 3 ? 0 : std::pow(std::sin(std::numbers::pi * std::fmod(t / 0.25, 1)), 2);
    const double pitch = 100 + 15.0 * (syllable % 5);
    phase += pitch / kRate;
    double source = 0.3 * normal(random);
    if (phase >= 1) {
      phase -= 1;
      source += syllable % 3 == 0 ? 2 : 12;
    }
    double value = source;
    for (size_t r = 0; r < 2; ++r) {
      const double frequency = r == 0 ? 450 + 80.0 * (syllable % 4) : 1500 + 200.0 * (syllable % 3);
      const double pole = 0.95;
      const double out = value + 2 * pole * std::cos(2 * std::numbers::pi * frequency / kRate) * state[2 * r] -
                         pole * pole * state[2 * r + 1];
      state[2 * r + 1] = state[2 * r];
      state[2 * r] = out;
      value = out;
    }
    shape[i] = envelope * value;
  }
  return Scaled(shape, dbm0);
}

Signal Add(Signal a, const Signal& b) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i)
    a[i] = static_cast<int16_t>(std::clamp(a[i] + b[i], -32768, 32767));
  return a;
}

// What comes back of a sent signal: delayed, 6 dB down, through a line that rings for a millisecond.
Signal Echo(const Signal& sent, double delayMs) {
  const auto delay = static_cast<size_t>(delayMs * kRate / 1000);
  constexpr std::array kRing{0.45, -0.18, 0.09, -0.04};
  Signal echo(sent.size());
  for (size_t i = 0; i < sent.size(); ++i) {
    double value = 0;
    for (size_t k = 0; k < kRing.size(); ++k)
      if (i >= delay + k)
        value += kRing[k] * sent[i - delay - k];
    echo[i] = static_cast<int16_t>(value);
  }
  return echo;
}

// The line's A-law on both ways.
Signal Line(const Signal& signal) {
  Signal coded;
  for (const int16_t sample : signal)
    coded.push_back(ALawToLinear(LinearToALaw(sample)));
  return coded;
}

Signal Cancel(const Signal& sent, const Signal& received, int32_t tailMs = 32) {
  const std::unique_ptr<CEchoCanceller> canceller = CEchoCanceller::Create(tailMs);
  Signal cleaned;
  for (size_t i = 0; i < received.size(); ++i)
    cleaned.push_back(canceller->Update(i < sent.size() ? sent[i] : int16_t{8}, received[i]));
  return Line(cleaned);
}

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

struct SFarEnd {
  const char* name;
  bool speech;
  double delayMs;
};

class EchoCancellerFarEnd : public testing::TestWithParam<SFarEnd> {};

TEST_P(EchoCancellerFarEnd, IsCancelledBy30DbAfter6Seconds) {
  const SFarEnd far = GetParam();
  const Signal sent = Line(far.speech ? Speech(8, -14, 3) : Noise(8, -14));
  const Signal echo = Line(Echo(sent, far.delayMs));
  const Signal cleaned = Cancel(sent, echo);
  EXPECT_GE(Dbm0(echo, 6, 8) - Dbm0(cleaned, 6, 8), 30) << Dbm0(echo, 6, 8);
}

INSTANTIATE_TEST_SUITE_P(Signals, EchoCancellerFarEnd,
                         testing::Values(SFarEnd{"Noise8", false, 8}, SFarEnd{"Noise16", false, 16},
                                         SFarEnd{"Noise30", false, 30}, SFarEnd{"Speech8", true, 8},
                                         SFarEnd{"Speech16", true, 16}, SFarEnd{"Speech30", true, 30}),
                         [](const auto& far) { return std::string(far.param.name); });

// Eight words that people spoke, a second apart: 16 bit, 48 kHz. Empty without the sound package of scripts/setup.
Signal HumanWords(double seconds, double dbm0) {
  std::vector<double> shape;
  for (const char* word : {"Front_Center", "Front_Left", "Front_Right", "Rear_Center", "Rear_Left", "Rear_Right",
                           "Side_Left", "Side_Right"}) {
    std::ifstream file(std::string("/usr/share/sounds/alsa/") + word + ".wav", std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const size_t data = bytes.find("data");
    // Six samples become one: enough of a filter here.
    for (size_t at = data + 8; data != std::string::npos && at + 12 <= bytes.size(); at += 12) {
      double sum = 0;
      for (size_t k = 0; k < 12; k += 2)
        sum += static_cast<int16_t>(static_cast<uint8_t>(bytes[at + k]) | bytes[at + k + 1] << 8);
      shape.push_back(sum / 6);
    }
  }
  shape.resize(shape.empty() ? 0 : static_cast<size_t>(seconds * kRate));
  return shape.empty() ? Signal{} : Scaled(shape, dbm0);
}

TEST(EchoCanceller, OfHumanVoicesAtOrdinaryLevelsWithPausesIsCancelledBy30DbAfter6Seconds) {
  for (const double level : {-16.0, -18.0, -20.0}) {
    const Signal sent = Line(HumanWords(9, level));
    if (sent.empty())
      GTEST_SKIP() << "no recorded voices: scripts/setup installs them on Linux";
    for (const double delayMs : {8.0, 16.0, 30.0}) {
      const Signal echo = Line(Echo(sent, delayMs));
      const Signal cleaned = Cancel(sent, echo);
      EXPECT_GE(Dbm0(echo, 6, 9) - Dbm0(cleaned, 6, 9), 30) << level << " dBm0 " << delayMs << " ms";
    }
  }
}

TEST(EchoCanceller, OfATonePromptIsCancelledTooAndLeavesTheFilterAsGoodForSpeech) {
  for (const double frequency : {425.0, 1000.0, 2100.0}) {
    Signal sent = Speech(8, -14, 3);
    for (int i = 0; i < 4 * kRate; ++i)
      sent.push_back(static_cast<int16_t>(6000 * std::sin(2 * std::numbers::pi * frequency * i / kRate)));
    const Signal again = Speech(4, -14, 3);
    sent.insert(sent.end(), again.begin(), again.end());
    sent = Line(sent);
    const Signal echo = Line(Echo(sent, 16));
    const Signal cleaned = Cancel(sent, echo);
    EXPECT_GE(Dbm0(echo, 8.5, 12) - Dbm0(cleaned, 8.5, 12), 30) << frequency;
    EXPECT_GE(Dbm0(echo, 12, 14) - Dbm0(cleaned, 12, 14), 30) << frequency;
  }
}

// Loud syllables after which quiet ones follow: a step that suits the quiet ones makes the filter louder than the
// echo.
TEST(EchoCanceller, TheFilterIsNeverLouderThanTheEcho) {
  for (const unsigned seed : {1U, 2U, 3U, 4U, 5U, 6U}) {
    const Signal sent = Line(Speech(10, -8, seed));
    const Signal echo = Line(Echo(sent, seed % 2 == 0 ? 8 : 20));
    const Signal cleaned = Cancel(sent, echo);
    for (double from = 0.5; from < 9.9; from += 0.1)
      EXPECT_LE(Dbm0(cleaned, from, from + 0.1), std::max(Dbm0(echo, from, from + 0.1) + 2, -45.0))
          << seed << " " << from;
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

TEST(EchoCanceller, AfterDoubleTalkTheEchoIsCancelledAgain) {
  const Signal sent = Line(Noise(10, -14));
  Signal near(static_cast<size_t>(4 * kRate), 0);
  const Signal talk = Speech(1, -12, 5);
  near.insert(near.end(), talk.begin(), talk.end());
  near.resize(sent.size(), 0);
  const Signal echo = Echo(sent, 16);
  const Signal cleaned = Cancel(sent, Line(Add(echo, near)));
  EXPECT_GE(Dbm0(echo, 9, 10) - Dbm0(cleaned, 9, 10), 30);
}

TEST(EchoCanceller, BackgroundNoiseStaysAudibleWhileTheFarEndTalks) {
  const Signal background = Noise(8, -50, 9);
  Signal sent(static_cast<size_t>(4 * kRate), 8);  // the noise is learnt while nothing is sent
  const Signal talk = Line(Noise(4, -14));
  sent.insert(sent.end(), talk.begin(), talk.end());
  const Signal cleaned = Cancel(sent, Line(Add(Echo(sent, 16), background)));
  EXPECT_NEAR(Dbm0(cleaned, 3, 4), -50, 1.5);
  EXPECT_NEAR(Dbm0(cleaned, 7, 8), -50, 6);
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

TEST(EchoCanceller, TheCancellerIsTheSameOnEveryInstructionSet) {
#if defined(__x86_64__)
  if (!__builtin_cpu_supports("avx2"))
    GTEST_SKIP() << "this processor has no AVX2, so only one build can run here";
  const Signal sent = Line(Speech(2, -12, 3));
  const Signal received = Line(Add(Echo(sent, 16), Noise(2, -40)));
  void* base = echo_can_init_base(256, 1);
  void* avx2 = echo_can_init_avx2(256, 1);
  for (size_t i = 0; i < sent.size(); ++i)
    ASSERT_EQ(echo_can_update_base(base, sent[i], received[i]), echo_can_update_avx2(avx2, sent[i], received[i])) << i;
  echo_can_free_base(base);
  echo_can_free_avx2(avx2);
#else
  GTEST_SKIP() << "one build only on this processor family";
#endif
}

TEST(EchoCanceller, ANearEndAsLoudAsTheFarEndDoesNotMakeTheFilterForget) {
  const Signal sent = Line(Speech(10, -16, 3));
  Signal near(static_cast<size_t>(6 * kRate), 0);
  const Signal talk = Speech(3, -16, 4);
  near.insert(near.end(), talk.begin(), talk.end());
  near.resize(sent.size(), 0);
  const Signal echo = Echo(sent, 16);
  const Signal cleaned = Cancel(sent, Line(Add(echo, near)));
  EXPECT_GE(Dbm0(echo, 9.1, 10) - Dbm0(cleaned, 9.1, 10), 30);
}

TEST(EchoCanceller, AChangedLineIsLearntWithinSixSeconds) {
  const Signal sent = Line(Speech(13, -14, 3));
  Signal echo = Echo(sent, 8);
  const Signal later = Echo(sent, 20);
  std::copy(later.begin() + static_cast<ptrdiff_t>(6 * kRate), later.end(),
            echo.begin() + static_cast<ptrdiff_t>(6 * kRate));
  const Signal cleaned = Cancel(sent, Line(echo));
  EXPECT_GE(Dbm0(echo, 12, 13) - Dbm0(cleaned, 12, 13), 30);
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
