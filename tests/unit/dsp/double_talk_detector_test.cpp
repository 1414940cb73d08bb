// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/double_talk_detector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace zelk {
namespace {

class DoubleTalkDetector : public testing::Test {
 protected:
  // Noise of this strength both ways; what the filter made of it. Returns how many of the samples let it learn.
  int Feed(int samples, double sent, double received, double estimate, double residual) {
    int open = 0;
    for (int i = 0; i < samples; ++i) {
      open += detector.MayLearn(Draw(sent), Draw(received)) ? 1 : 0;
      detector.Note(Draw(estimate), Draw(residual));
    }
    return open;
  }
  int16_t Draw(double strength) { return static_cast<int16_t>(std::lround(strength * uniform(random))); }

  std::mt19937 random{5};
  std::uniform_real_distribution<double> uniform{-1, 1};
  std::array<int32_t, CDoubleTalkDetector::StretchesOf(256)> maxima{};
  CDoubleTalkDetector detector{256, maxima.data()};
};

TEST_F(DoubleTalkDetector, IsOpenWhileTheEchoIsWeakerThanTheSound) {
  EXPECT_GE(Feed(8000, 8000, 3000, 0, 3000), 7900);
}

TEST_F(DoubleTalkDetector, IsShutWhileNothingIsSent) {
  EXPECT_EQ(Feed(8000, 0, 500, 0, 500), 0);
}

// The sound falls by 20 dB; its echo follows 24 ms later and may be learnt from all the time.
TEST_F(DoubleTalkDetector, ALateEchoOfFallingSoundIsNotSomebodySpeaking) {
  Feed(4000, 8000, 3000, 0, 3000);
  EXPECT_GE(Feed(192, 800, 3000, 0, 3000), 190);
  EXPECT_GE(Feed(200, 800, 300, 0, 300), 195);
}

TEST_F(DoubleTalkDetector, ANearEndLouderThanTheFarEndShutsItForAWhile) {
  Feed(4000, 4000, 1500, 0, 1500);
  Feed(400, 4000, 12000, 0, 12000);
  EXPECT_LE(Feed(550, 4000, 1500, 0, 1500), 30);
  Feed(100, 4000, 1500, 0, 1500);
  EXPECT_GE(Feed(500, 4000, 1500, 0, 1500), 490);
}

TEST_F(DoubleTalkDetector, AResidualAboveTheEstimateShutsItOnceProven) {
  Feed(4000, 8000, 2000, 2000, 100);
  EXPECT_LE(Feed(4000, 8000, 2800, 2000, 2500), 150);
  EXPECT_GE(Feed(2000, 8000, 2000, 2000, 100), 1400);
}

TEST_F(DoubleTalkDetector, ASecondOfThatIsAChangedLineAndOpensIt) {
  Feed(4000, 8000, 2000, 2000, 100);
  Feed(8200, 8000, 2800, 2000, 2800);
  EXPECT_GE(Feed(2000, 8000, 2800, 2000, 2800), 1950);
}

TEST_F(DoubleTalkDetector, AFilterNotYetProvenIsNotShutByItsResidual) {
  EXPECT_GE(Feed(8000, 8000, 3000, 1000, 3000), 7900);
}

// Sound is remembered for as long as its echo may come: the tail and up to two stretches of 32 samples more. A length
// above the most counts as the most.
TEST(DoubleTalkDetectorTail, SoundIsRememberedForTheTailWhateverItsLength) {
  for (const int32_t taps : {1, 31, 32, 256, 8191, 8192, 1000000}) {
    std::vector<int32_t> maxima(CDoubleTalkDetector::StretchesOf(taps));
    CDoubleTalkDetector detector(taps, maxima.data());
    for (int i = 0; i < 320; ++i) {
      detector.MayLearn(i % 2 == 0 ? -32768 : 32767, i % 2 == 0 ? 8000 : -8000);
      detector.Note(65535, -65535);
    }
    const int32_t tail = std::min(taps, CDoubleTalkDetector::kMaxTaps);
    int32_t open = 0;
    for (int32_t i = 0; i < 2 * CDoubleTalkDetector::kMaxTaps; ++i)
      open += detector.MayLearn(0, i % 2 == 0 ? 500 : -500) ? 1 : 0;
    EXPECT_GE(open, tail) << taps;
    EXPECT_LE(open, tail + 3 * 32 + 100) << taps;  // and what the power needs to die away
  }
}

}  // namespace
}  // namespace zelk
