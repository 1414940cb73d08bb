// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "dsp/echo_canceller.h"
#include "formats/g711.h"

// What the tests of the echo canceller share: sounds of a level, their echoes, and the canceller run over them.
namespace zelk::echo {

using Signal = std::vector<int16_t>;

constexpr double kRate = 8000;
// A sine at full scale is 3.14 dBm0 in A-law.
constexpr double kFullScaleDbm0 = 3.14;

inline double Rms(const Signal& signal, double from, double to) {
  double sum = 0;
  const auto begin = static_cast<size_t>(from * kRate);
  const auto end = static_cast<size_t>(to * kRate);
  for (size_t i = begin; i < end; ++i)
    sum += double{1} * signal[i] * signal[i];
  return std::sqrt(sum / static_cast<double>(end - begin));
}

inline double Dbm0(const Signal& signal, double from, double to) {
  return 20 * std::log10(std::max(Rms(signal, from, to), 1e-3) * std::numbers::sqrt2 / 32635) + kFullScaleDbm0;
}

inline Signal Scaled(const std::vector<double>& shape, double dbm0) {
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

inline Signal Noise(double seconds, double dbm0, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> shape(static_cast<size_t>(seconds * kRate));
  for (double& value : shape)
    value = normal(random);
  return Scaled(shape, dbm0);
}

// Voiced and unvoiced pieces through two resonances, syllables of 250 ms and a pause in every fourth.
inline Signal Speech(double seconds, double dbm0, unsigned seed) {
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

inline Signal Add(Signal a, const Signal& b) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i)
    a[i] = static_cast<int16_t>(std::clamp(a[i] + b[i], -32768, 32767));
  return a;
}

// What comes back of a sent signal: delayed, 6 dB down, through a line that rings for a millisecond.
inline Signal Echo(const Signal& sent, double delayMs) {
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
inline Signal Line(const Signal& signal) {
  Signal coded;
  for (const int16_t sample : signal)
    coded.push_back(ALawToLinear(LinearToALaw(sample)));
  return coded;
}

inline Signal Cancel(const Signal& sent, const Signal& received, int32_t tailMs = 32) {
  const std::unique_ptr<CEchoCanceller> canceller = CEchoCanceller::Create(tailMs);
  Signal cleaned;
  for (size_t i = 0; i < received.size(); ++i)
    cleaned.push_back(canceller->Update(i < sent.size() ? sent[i] : int16_t{8}, received[i]));
  return Line(cleaned);
}

// Eight words that people spoke, a second apart: 16 bit, 48 kHz. Empty without the sound package of scripts/setup.
inline Signal HumanWords(double seconds, double dbm0) {
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

}  // namespace zelk::echo
