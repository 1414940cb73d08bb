// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <vector>

#include "dsp/dtmf_decode.h"

// What the tests of the digit detector share: signals made from sines, and the detector in its literal form.
namespace zelk::dtmf {

constexpr std::array<double, 4> kRows = {697, 770, 852, 941};
constexpr std::array<double, 4> kColumns = {1209, 1336, 1477, 1633};
inline const std::string kDigits = "123A456B789C*0#D";
constexpr size_t kBlock = 102;

using Signal = std::vector<int16_t>;

// The detector written down sample by sample, with nothing left out or put off: what the product is compared with.
class CLiteralDetector {
 public:
  explicit CLiteralDetector(const SDtmfSettings& s) : settings(s) {}

  void Process(int16_t sample) {
    float x = sample;
    if (filterDialTone) {
      float w = 0.98356F * x + 1.8954426F * w350[0] - 0.9691396F * w350[1];
      const float y = w - 1.925148F * w350[0] + w350[1];
      w350[1] = w350[0];
      w350[0] = w;
      w = 0.98456F * y + 1.8529543F * w440[0] - 0.9691396F * w440[1];
      x = w - 1.8819938F * w440[0] + w440[1];
      w440[1] = w440[0];
      w440[0] = w;
    }
    energy += x * x;
    ++count;
    for (size_t i = 0; i < 8; ++i) {
      const float s0 = coefficient[i] * s1[i] - s2[i] + x;
      s2[i] = s1[i];
      s1[i] = s0;
    }
    if (count == static_cast<int>(kBlock)) {
      EndBlock();
    }
  }

  // Energies of the eight filters at the end of a block.
  std::array<float, 8> Energies() const {
    std::array<float, 8> result{};
    for (size_t i = 0; i < 8; ++i) {
      const float s0 = coefficient[i] * s1[i] - s2[i];
      result[i] = s1[i] * s1[i] + s0 * s0 - coefficient[i] * s1[i] * s0;
    }
    return result;
  }

  // What they would be after one more.
  std::array<float, 8> EnergiesAfter(int16_t sample) const {
    CLiteralDetector next = *this;
    next.count = 0;  // the block does not end with it
    next.Process(sample);
    return next.Energies();
  }

  std::string digits;
  char inDigit = 0;
  char lastHit = 0;
  bool filterDialTone = false;

 private:
  void EndBlock() {
    char hit = Hit(Energies());
    if (hit != inDigit && lastHit != inDigit) {
      if (hit != 0 && hit == lastHit) {
        digits += hit;
      } else {
        hit = 0;
      }
      inDigit = hit;
    }
    lastHit = hit;
    s1 = {};
    s2 = {};
    energy = 0;
    count = 0;
  }

  char Hit(const std::array<float, 8>& e) const {
    size_t row = 0;
    size_t column = 0;
    for (size_t i = 1; i < 4; ++i) {
      row = e[i] > e[row] ? i : row;
      column = e[4 + i] > e[4 + column] ? i : column;
    }
    const float r = e[row];
    const float c = e[4 + column];
    bool good = r >= 8.0e7F && c >= 8.0e7F && r * settings.reverseTwist > c && c * settings.normalTwist > r;
    for (size_t i = 0; i < 4; ++i) {
      good = good && (i == column || c >= e[4 + i] * settings.columnPeak);
      good = good && (i == row || r >= e[i] * settings.rowPeak);
    }
    good = good && r + c > settings.totalEnergy * energy;
    return good ? kDigits[row * 4 + column] : '\0';
  }

  SDtmfSettings settings;
  // 2 cos(2 pi f / 8000), each step rounded to single precision; worked out elsewhere, so that a system whose cosine
  // ends in another bit is found out.
  static constexpr std::array<float, 8> coefficient = {0x1.b52e4ep+0F, 0x1.a53124p+0F, 0x1.919578p+0F, 0x1.7a6b9cp+0F,
                                                       0x1.2a02b8p+0F, 0x1.fe243cp-1F, 0x1.98e482p-1F, 0x1.2316b6p-1F};
  std::array<float, 8> s1{};
  std::array<float, 8> s2{};
  std::array<float, 2> w350{};
  std::array<float, 2> w440{};
  float energy = 0;
  int count = 0;
};

inline int16_t Clipped(double value) {
  return static_cast<int16_t>(std::lround(std::min(32767.0, std::max(-32768.0, value))));
}

inline void AddTone(Signal& signal, size_t from, size_t length, double frequency, double amplitude, double phase = 0) {
  signal.resize(std::max(signal.size(), from + length));
  for (size_t i = 0; i < length; ++i) {
    const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / 8000 + phase;
    signal[from + i] = Clipped(signal[from + i] + amplitude * std::sin(angle));
  }
}

inline void AddDigit(Signal& signal, char digit, size_t length, double rowAmplitude = 1000,
                     double columnAmplitude = 1000) {
  const size_t index = kDigits.find(digit);
  const size_t from = signal.size();
  AddTone(signal, from, length, kRows[index / 4], rowAmplitude);
  AddTone(signal, from, length, kColumns[index % 4], columnAmplitude, 0.7);
}

inline void AddSilence(Signal& signal, size_t length) {
  signal.resize(signal.size() + length);
}

inline std::string TakeAll(CDtmfDecode& decoder) {
  std::string digits;
  while (const char digit = decoder.TakeDigit()) {
    digits += digit;
  }
  return digits;
}

inline std::string Decode(CDtmfDecode& decoder, const Signal& signal) {
  for (const int16_t sample : signal) {
    EXPECT_EQ(decoder.Process(sample), 0);
  }
  return TakeAll(decoder);
}

inline std::string Decode(const Signal& signal, const SDtmfSettings& settings = {}) {
  CDtmfDecode decoder;
  decoder.SetThresholds(settings);
  return Decode(decoder, signal);
}

inline std::string DigitOf(double row, double column, double rowAmplitude, double columnAmplitude,
                           const SDtmfSettings& settings = {}) {
  Signal signal;
  AddTone(signal, 0, 4 * kBlock, row, rowAmplitude);
  AddTone(signal, 0, 4 * kBlock, column, columnAmplitude, 0.7);
  return Decode(signal, settings);
}

}  // namespace zelk::dtmf
