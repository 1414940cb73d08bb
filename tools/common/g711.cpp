// SPDX-License-Identifier: GPL-2.0-only
#include "common/g711.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace tool {
namespace {

constexpr double kFullScaleDbm0 = 3.14;
constexpr double kFullScale = 32768.0;

}  // namespace

std::uint8_t EncodeALaw(std::int16_t linear) {
  const bool positive = linear >= 0;
  // Symmetric about zero: a value and its negative get the same magnitude.
  const unsigned magnitude = static_cast<unsigned>(std::min(std::abs(int{linear}), 32767)) >> 4;  // 0 to 2047
  unsigned code = magnitude;  // the two lowest segments have steps of one
  if (magnitude >= 32) {
    const unsigned segment = static_cast<unsigned>(std::bit_width(magnitude)) - 4;
    code = (segment << 4) | ((magnitude >> (segment - 1)) & 0x0F);
  }
  return static_cast<std::uint8_t>(code ^ (positive ? 0xD5U : 0x55U));
}

std::int16_t DecodeALaw(std::uint8_t code) {
  const int plain = code ^ 0x55;
  const int segment = (plain >> 4) & 7;
  int magnitude = ((plain & 0x0F) << 4) + 8;
  if (segment > 0) {
    magnitude = (magnitude + 0x100) << (segment - 1);
  }
  return static_cast<std::int16_t>((plain & 0x80) != 0 ? magnitude : -magnitude);
}

double AmplitudeOfDbm0(double level) {
  return kFullScale * std::pow(10.0, (level - kFullScaleDbm0) / 20.0);
}

double Dbm0OfALaw(const std::uint8_t* samples, std::size_t count) {
  double power = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double value = DecodeALaw(samples[i]);
    power += value * value;
  }
  if (count == 0 || power == 0) {
    return -std::numeric_limits<double>::infinity();
  }
  const double fullScaleSine = kFullScale * kFullScale / 2;
  return kFullScaleDbm0 + 10.0 * std::log10(power / static_cast<double>(count) / fullScaleSine);
}

}  // namespace tool
