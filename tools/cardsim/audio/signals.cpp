// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/signals.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/g711.h"
#include "common/wire.h"

namespace cardsim {
namespace {

constexpr int kSamplesPerMs = kSampleRate / 1000;

using Linear = std::vector<double>;

std::size_t SamplesOf(int ms) {
  return static_cast<std::size_t>(std::max(ms, 0)) * kSamplesPerMs;
}

Bytes Encode(const Linear& signal) {
  Bytes codes(signal.size());
  std::transform(signal.begin(), signal.end(), codes.begin(), [](double value) {
    return EncodeALaw(static_cast<std::int16_t>(std::clamp(std::lround(value), -32768L, 32767L)));
  });
  return codes;
}

// Numbers between -1 and 1, the same on every system.
class CRandom {
 public:
  explicit CRandom(std::uint32_t seed) : engine(seed) {}
  double Uniform() { return static_cast<double>(engine()) / 2147483648.0 - 1.0; }
  // Variance 1: the sum of twelve is close enough to a bell.
  double Normal() {
    double sum = 0;
    for (int i = 0; i < 12; ++i) {
      sum += Uniform();
    }
    return sum / 2.0;
  }

 private:
  std::mt19937 engine;
};

double RmsOfDbm0(double level) {
  return AmplitudeOfDbm0(level) / std::numbers::sqrt2;
}

void AddNoise(Linear& signal, double level, std::uint32_t seed) {
  CRandom random(seed);
  const double rms = RmsOfDbm0(level);
  for (double& value : signal) {
    value += rms * random.Normal();
  }
}

struct SPair {
  double row;
  double column;
};

SPair FrequenciesOf(char digit) {
  constexpr std::string_view kKeys = "123A456B789C*0#D";
  constexpr std::array<double, 4> kRows{697, 770, 852, 941};
  constexpr std::array<double, 4> kColumns{1209, 1336, 1477, 1633};
  const std::size_t key = kKeys.find(digit);
  if (key == std::string_view::npos) {
    throw std::invalid_argument(std::string("not a DTMF digit: ") + digit);
  }
  return {kRows[key / 4], kColumns[key % 4]};
}

double Sine(double frequency, std::size_t sample) {
  const double turns = frequency * static_cast<double>(sample) / kSampleRate;
  return std::sin(2 * std::numbers::pi * (turns - std::floor(turns)));
}

// One resonance of the mouth: y = x + 2 r cos(w) y1 - r^2 y2.
class CFormant {
 public:
  double Next(double input, double frequency, double bandwidth) {
    const double radius = std::exp(-std::numbers::pi * bandwidth / kSampleRate);
    const double output = (1 - radius) * input +
                          2 * radius * std::cos(2 * std::numbers::pi * frequency / kSampleRate) * newer -
                          radius * radius * older;
    older = newer;
    newer = output;
    return output;
  }

 private:
  double newer = 0;
  double older = 0;
};

struct SSyllable {
  std::size_t samples = 0;  // the last third of it is silent
  double pitch = 0;
  double first = 0;
  double second = 0;
  bool voiced = true;
};

SSyllable NextSyllable(CRandom& random) {
  SSyllable syllable;
  syllable.samples = SamplesOf(static_cast<int>(220 + 100 * random.Uniform()));
  syllable.pitch = 130 + 35 * random.Uniform();
  syllable.first = 500 + 250 * random.Uniform();
  syllable.second = 1600 + 700 * random.Uniform();
  syllable.voiced = random.Uniform() > -0.7;
  return syllable;
}

void AddSyllable(Linear& signal, const SSyllable& syllable, CRandom& random) {
  CFormant low;
  CFormant high;
  double phase = 0;
  const std::size_t sounding = syllable.samples * 2 / 3;
  for (std::size_t i = 0; i < syllable.samples; ++i) {
    double value = 0;
    if (i < sounding) {
      const double part = static_cast<double>(i) / static_cast<double>(sounding);
      phase += syllable.pitch * (1.1 - 0.2 * part) / kSampleRate;
      const bool pulse = phase >= 1;
      phase -= pulse ? 1 : 0;
      const double source = syllable.voiced ? (pulse ? 8.0 : 0.0) + 0.2 * random.Normal() : 0.6 * random.Normal();
      const double envelope = std::sin(std::numbers::pi * part);
      value = envelope * (low.Next(source, syllable.first, 90) + 0.6 * high.Next(source, syllable.second, 150));
    }
    signal.push_back(value);
  }
}

}  // namespace

Bytes RenderDtmf(std::string_view digits, const SDtmfSignal& signal) {
  Linear sound;
  const double scale = 1 + signal.offsetPercent / 100;
  const double row = AmplitudeOfDbm0(signal.level);
  const double column = AmplitudeOfDbm0(signal.level + signal.twist);
  for (const char digit : digits) {
    const SPair pair = FrequenciesOf(digit);
    for (std::size_t i = 0; i < SamplesOf(signal.onMs); ++i) {
      sound.push_back(row * Sine(pair.row * scale, i) + column * Sine(pair.column * scale, i));
    }
    sound.resize(sound.size() + SamplesOf(signal.offMs), 0.0);
  }
  if (signal.noise > SDtmfSignal::kNoNoise) {
    AddNoise(sound, signal.noise, signal.seed);
  }
  return Encode(sound);
}

Bytes RenderNoise(double level, int ms, std::uint32_t seed) {
  Linear sound(SamplesOf(ms), 0.0);
  AddNoise(sound, level, seed);
  return Encode(sound);
}

Bytes RenderSpeech(double level, int ms, std::uint32_t seed) {
  CRandom random(seed);
  Linear sound;
  while (sound.size() < SamplesOf(ms)) {
    AddSyllable(sound, NextSyllable(random), random);
  }
  sound.resize(SamplesOf(ms));
  double power = 0;
  for (const double value : sound) {
    power += value * value;
  }
  const double rms = std::sqrt(power / static_cast<double>(std::max<std::size_t>(sound.size(), 1)));
  for (double& value : sound) {
    value *= rms > 0 ? RmsOfDbm0(level) / rms : 0;
  }
  return Encode(sound);
}

Bytes Mix(ByteView first, ByteView second) {
  Linear sound(std::max(first.size(), second.size()), 0.0);
  for (std::size_t i = 0; i < sound.size(); ++i) {
    sound[i] = (i < first.size() ? DecodeALaw(first[i]) : 0) + (i < second.size() ? DecodeALaw(second[i]) : 0);
  }
  return Encode(sound);
}

double LevelOf(ByteView samples) {
  return Dbm0OfALaw(samples.data(), samples.size());
}

}  // namespace cardsim
