// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "echo_signals.h"

// How well and how soon the echo canceller learns, and what it forgets.
namespace zelk {
namespace {

using namespace echo;

struct SFarEnd {
  const char* name;
  bool speech;
  double delayMs;
};

class EchoOfTheFarEnd : public testing::TestWithParam<SFarEnd> {};

TEST_P(EchoOfTheFarEnd, IsCancelledBy30DbAfter6Seconds) {
  const SFarEnd far = GetParam();
  const Signal sent = Line(far.speech ? Speech(8, -14, 3) : Noise(8, -14));
  const Signal echo = Line(Echo(sent, far.delayMs));
  const Signal cleaned = Cancel(sent, echo);
  EXPECT_GE(Dbm0(echo, 6, 8) - Dbm0(cleaned, 6, 8), 30) << Dbm0(echo, 6, 8);
}

INSTANTIATE_TEST_SUITE_P(Signals, EchoOfTheFarEnd,
                         testing::Values(SFarEnd{"Noise8", false, 8}, SFarEnd{"Noise16", false, 16},
                                         SFarEnd{"Noise30", false, 30}, SFarEnd{"Speech8", true, 8},
                                         SFarEnd{"Speech16", true, 16}, SFarEnd{"Speech30", true, 30}),
                         [](const auto& far) { return std::string(far.param.name); });

TEST(EchoConvergence, HumanVoicesAreCancelledBy30DbAfter6Seconds) {
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

TEST(EchoConvergence, ATonePromptLeavesTheFilterAsGoodForSpeech) {
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
TEST(EchoConvergence, TheFilterIsNeverLouderThanTheEcho) {
  for (const unsigned seed : {1U, 2U, 3U, 4U, 5U, 6U}) {
    const Signal sent = Line(Speech(10, -8, seed));
    const Signal echo = Line(Echo(sent, seed % 2 == 0 ? 8 : 20));
    const Signal cleaned = Cancel(sent, echo);
    for (double from = 0.5; from < 9.9; from += 0.1)
      EXPECT_LE(Dbm0(cleaned, from, from + 0.1), std::max(Dbm0(echo, from, from + 0.1) + 2, -45.0))
          << seed << " " << from;
  }
}

TEST(EchoConvergence, AfterDoubleTalkTheEchoIsCancelledAgain) {
  const Signal sent = Line(Noise(10, -14));
  Signal near(static_cast<size_t>(4 * kRate), 0);
  const Signal talk = Speech(1, -12, 5);
  near.insert(near.end(), talk.begin(), talk.end());
  near.resize(sent.size(), 0);
  const Signal echo = Echo(sent, 16);
  const Signal cleaned = Cancel(sent, Line(Add(echo, near)));
  EXPECT_GE(Dbm0(echo, 9, 10) - Dbm0(cleaned, 9, 10), 30);
}

TEST(EchoConvergence, BackgroundNoiseStaysAudibleWhileTheFarEndTalks) {
  const Signal background = Noise(8, -50, 9);
  Signal sent(static_cast<size_t>(4 * kRate), 8);  // the noise is learnt while nothing is sent
  const Signal talk = Line(Noise(4, -14));
  sent.insert(sent.end(), talk.begin(), talk.end());
  const Signal cleaned = Cancel(sent, Line(Add(Echo(sent, 16), background)));
  EXPECT_NEAR(Dbm0(cleaned, 3, 4), -50, 1.5);
  EXPECT_NEAR(Dbm0(cleaned, 7, 8), -50, 6);
}

TEST(EchoConvergence, ANearEndAsLoudAsTheFarEndDoesNotMakeTheFilterForget) {
  const Signal sent = Line(Speech(10, -16, 3));
  Signal near(static_cast<size_t>(6 * kRate), 0);
  const Signal talk = Speech(3, -16, 4);
  near.insert(near.end(), talk.begin(), talk.end());
  near.resize(sent.size(), 0);
  const Signal echo = Echo(sent, 16);
  const Signal cleaned = Cancel(sent, Line(Add(echo, near)));
  EXPECT_GE(Dbm0(echo, 9.1, 10) - Dbm0(cleaned, 9.1, 10), 30);
}

TEST(EchoConvergence, AChangedLineIsLearntWithinSixSeconds) {
  const Signal sent = Line(Speech(13, -14, 3));
  Signal echo = Echo(sent, 8);
  const Signal later = Echo(sent, 20);
  std::copy(later.begin() + static_cast<ptrdiff_t>(6 * kRate), later.end(),
            echo.begin() + static_cast<ptrdiff_t>(6 * kRate));
  const Signal cleaned = Cancel(sent, Line(echo));
  EXPECT_GE(Dbm0(echo, 12, 13) - Dbm0(cleaned, 12, 13), 30);
}

}  // namespace
}  // namespace zelk
