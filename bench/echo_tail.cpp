// SPDX-License-Identifier: GPL-2.0-only

// What an echo canceller costs by the length of its tail: nanoseconds of one canceller per sample, with noise one way
// and its echo back, and the share of a core that the 256 timeslots of an eight-trunk card would take. Usage: echo_tail
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "dsp/echo_canceller.h"
#include "formats/g711.h"

namespace {

constexpr size_t kDelay = 64;  // 8 ms
constexpr size_t kSamples = 8000;
constexpr size_t kStretch = 100;  // samples that are timed together
constexpr size_t kFrames = 5;     // as they come in the packets of eight trunks
constexpr int kRounds = 5;
constexpr double kTimeslots = 256;
constexpr double kSamplesPerSecond = 8000;

// The best of many short stretches: what else runs on the machine only adds.
double NanosecondsPerSample(int32_t tailMs, const std::vector<uint8_t>& sent, const std::vector<uint8_t>& received) {
  const std::unique_ptr<zelk::CEchoCanceller> stage = zelk::CEchoCanceller::Create(tailMs);
  double best = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<uint8_t> cleaned = received;
    for (size_t from = 0; from < kSamples; from += kStretch) {
      const auto start = std::chrono::steady_clock::now();
      for (size_t at = from; at < from + kStretch; at += kFrames)
        stage->Process(&cleaned[at], &sent[at], kFrames, kFrames, 1);
      const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
      if (round > 0)  // the first one fills the tail
        best = std::min(best, taken.count() / kStretch);
    }
  }
  return best;
}

}  // namespace

int main() {
  std::mt19937 random(1);
  std::normal_distribution<double> noise(0, 4000);
  std::vector<uint8_t> sent(kSamples);
  std::vector<uint8_t> received(kSamples, 0xD5);
  for (size_t i = 0; i < kSamples; ++i) {
    sent[i] = zelk::LinearToALaw(static_cast<int16_t>(noise(random)));
    if (i >= kDelay)
      received[i] = zelk::LinearToALaw(static_cast<int16_t>(zelk::ALawToLinear(sent[i - kDelay]) / 2));
  }
  double shortest = 0;
  for (const int32_t tailMs : {32, 64, 128, 256, 512, 1024}) {
    const double each = NanosecondsPerSample(tailMs, sent, received);
    shortest = shortest == 0 ? each : shortest;
    std::printf("%4d ms: %5d taps, %7.0f ns a sample, %5.1f times that of 32 ms, %5.0f %% of a core for eight trunks\n",
                tailMs, tailMs * 8, each, each / shortest, each * kTimeslots * kSamplesPerSecond / 1e7);
  }
  return 0;
}
