// SPDX-License-Identifier: GPL-2.0-only
#include "phone/digits.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string_view>

#include "zelk/ZelkApi.h"

namespace phone {

namespace {

constexpr size_t kToneSamples = size_t{80} * ZELK_BYTES_PER_MS;
constexpr size_t kPauseSamples = size_t{80} * ZELK_BYTES_PER_MS;
constexpr double kSampleRate = ZELK_SAMPLE_RATE;
constexpr uint8_t kSilence = 0xD5;
// A full-scale sine is +3.14 dBm0, so one of -9 dBm0 is 12.14 dB below it.
constexpr double kAmplitude = 32767 * 0.2472;

// ITU-T G.711: the magnitude in 16-bit units, segments of 16 steps; every even bit is turned over.
uint8_t ALawOf(double sample) {
  const unsigned magnitude = static_cast<unsigned>(std::min(std::abs(std::lround(sample)), 32767L)) >> 4;
  unsigned code = magnitude;
  if (magnitude >= 32) {
    const unsigned segment = static_cast<unsigned>(std::bit_width(magnitude)) - 4;
    code = segment << 4 | (magnitude >> (segment - 1) & 0x0F);
  }
  return static_cast<uint8_t>(code ^ (sample >= 0 ? 0xD5U : 0x55U));
}

void AppendTone(std::vector<uint8_t>& sound, double row, double column) {
  for (size_t i = 0; i < kToneSamples; ++i) {
    const double angle = 2 * std::numbers::pi * static_cast<double>(i) / kSampleRate;
    sound.push_back(ALawOf(kAmplitude * (std::sin(row * angle) + std::sin(column * angle))));
  }
  sound.insert(sound.end(), kPauseSamples, kSilence);
}

}  // namespace

std::vector<uint8_t> RenderDigits(const std::string& digits) {
  constexpr std::string_view kKeys = "123A456B789C*0#D";
  constexpr double kRows[] = {697, 770, 852, 941};
  constexpr double kColumns[] = {1209, 1336, 1477, 1633};
  std::vector<uint8_t> sound;
  for (const char digit : digits) {
    if (digit == ',') {
      sound.insert(sound.end(), ZELK_SAMPLE_RATE, kSilence);
      continue;
    }
    const size_t key = kKeys.find(static_cast<char>(std::toupper(static_cast<unsigned char>(digit))));
    if (key == std::string_view::npos) {
      throw std::invalid_argument(std::string("not a digit to send: ") + digit);
    }
    AppendTone(sound, kRows[key / 4], kColumns[key % 4]);
  }
  return sound;
}

}  // namespace phone
