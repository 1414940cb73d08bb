// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "dtmf_signals.h"
#include "formats/g711.h"

// A line's sound for the digit detector's tests, in A-law: stretches of everything that a detector may be given, one
// after the other and never twice the same.
namespace zelk::dtmf {

class CLineSounds {
 public:
  explicit CLineSounds(unsigned seed) : random(seed) { Renew(); }

  // The next delivery of a line; each line carries on where its stretch is.
  void Fill(size_t line, uint8_t* alaw) {
    SLine& at = lines.at(line);
    if (at.deliveries-- == 0)
      at = {random() % kKinds, random() % (kSamples - 40 * kDelivery), random() % 40};
    for (size_t i = 0; i < kDelivery; ++i)
      alaw[i] = sounds[at.kind][at.from + i];
    at.from += kDelivery;
    taken += kDelivery;
    if (taken >= 20 * kKinds * kSamples)
      Renew();
  }

  static constexpr size_t kDelivery = 160;
  static constexpr size_t kLines = 40;

 private:
  static constexpr size_t kKinds = 7;
  static constexpr size_t kSamples = 100000;

  struct SLine {
    size_t kind = 0;
    size_t from = 0;
    size_t deliveries = 0;
  };

  void Renew() {
    taken = 0;
    lines = {};
    for (size_t kind = 0; kind < kKinds; ++kind)
      sounds[kind] = Of(kind);
  }

  std::vector<uint8_t> Of(size_t kind) {
    std::vector<uint8_t> bytes(kSamples);
    if (kind < 3) {
      for (uint8_t& byte : bytes)
        byte = kind == 0 ? kIdleByte : static_cast<uint8_t>(kind == 1 ? random() : 0x50 | (random() & 0x8F));
      return bytes;
    }
    const Signal signal = kind == 3 ? Dialling(4000) : kind == 4 ? Dialling(400) : kind == 5 ? Noise() : Voice();
    for (size_t i = 0; i < kSamples; ++i)
      bytes[i] = LinearToALaw(signal[i]);
    return bytes;
  }

  double Between(double from, double to) { return std::uniform_real_distribution<double>(from, to)(random); }

  // Digits of every length, level and twist, off their frequencies, some with a tone or noise beside them. The lower
  // the levels, the more of them lie about the absolute threshold.
  Signal Dialling(double loudest) {
    Signal signal;
    while (signal.size() < kSamples) {
      const size_t digit = random() % 16;
      const size_t length = 20 + random() % 700;
      const size_t from = signal.size();
      const double amplitude = Between(100, loudest);
      AddTone(signal, from, length, kRows[digit / 4] * Between(0.975, 1.025), amplitude, Between(0, 6));
      AddTone(signal, from, length, kColumns[digit % 4] * Between(0.975, 1.025), amplitude * Between(0.3, 3),
              Between(0, 6));
      if (random() % 3 == 0)
        AddTone(signal, from, length, Between(200, 3400), amplitude * Between(0, 0.6));
      AddSilence(signal, random() % 500);
    }
    return signal;
  }

  // Of every level, by stretches.
  Signal Noise() {
    Signal signal(kSamples);
    std::normal_distribution<double> normal;
    double level = 0;
    for (size_t i = 0; i < kSamples; ++i) {
      if (i % 1000 == 0)
        level = std::pow(10, Between(1, 4.3));
      signal[i] = Clipped(level * normal(random));
    }
    return signal;
  }

  // Pulses of a wandering pitch through two wandering resonances, in syllables.
  Signal Voice() {
    Signal signal(kSamples);
    std::normal_distribution<double> normal;
    std::array<double, 4> state{};
    std::array<double, 2> formants{};
    double phase = 0;
    double pitch = 0;
    for (size_t i = 0; i < kSamples; ++i) {
      if (i % 800 == 0) {
        pitch = Between(80, 250);
        formants = {Between(250, 900), Between(900, 2500)};
      }
      phase += pitch / 8000;
      const bool pulse = phase >= 1;
      phase -= pulse ? 1 : 0;
      double value = (pulse ? 12 : 0) + 0.2 * normal(random);
      for (size_t k = 0; k < formants.size(); ++k) {
        const double next =
            value + 1.94 * std::cos(2 * std::numbers::pi * formants[k] / 8000) * state[2 * k] - 0.94 * state[2 * k + 1];
        state[2 * k + 1] = state[2 * k];
        value = state[2 * k] = next;
      }
      const double t = static_cast<double>(i % 4000) / 4000;
      signal[i] = Clipped(100 * value * (t > 0.8 ? 0.01 : std::sin(t / 0.8 * std::numbers::pi)));
    }
    return signal;
  }

  std::mt19937 random;
  std::array<SLine, kLines> lines;
  std::array<std::vector<uint8_t>, kKinds> sounds;
  size_t taken = 0;
};

}  // namespace zelk::dtmf
