/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * Samples as ITU-T G.711 has them.
 */
#ifndef ZELK_CPP_ALAW_HPP
#define ZELK_CPP_ALAW_HPP

#include <cstdint>

namespace zelkapi {

/** The A-law byte of the smallest sample. */
constexpr std::uint8_t kSilence = 0xD5;

/** The 16-bit sample in A-law. */
inline std::uint8_t linearToAlaw(int sample) noexcept {
  constexpr int kMost = 32767;
  const unsigned sign = sample >= 0 ? 0x80U : 0U;
  const int wide = sample < 0 ? -sample : sample;
  const auto magnitude = static_cast<unsigned>(wide > kMost ? kMost : wide);
  unsigned segment = 0;
  while (segment < 7 && magnitude >> (segment + 8) != 0) {
    ++segment;
  }
  const unsigned step = segment < 2 ? magnitude >> 4 & 0x0FU : magnitude >> (segment + 3) & 0x0FU;
  return static_cast<std::uint8_t>((sign | segment << 4 | step) ^ 0x55U);
}

/** The A-law byte as a 16-bit sample. */
inline std::int16_t alawToLinear(std::uint8_t code) noexcept {
  const unsigned bits = code ^ 0x55U;
  const unsigned segment = bits >> 4 & 7U;
  const int step = static_cast<int>((bits & 0x0FU) << 4) + 8;
  const int magnitude = segment == 0 ? step : (step + 0x100) * (1 << (segment - 1));
  return static_cast<std::int16_t>((bits & 0x80U) != 0 ? magnitude : -magnitude);
}

/** The mu-law byte as a 16-bit sample. */
inline std::int16_t mulawToLinear(std::uint8_t code) noexcept {
  constexpr int kBias = 0x84;
  const unsigned bits = code ^ 0xFFU;
  const int magnitude = (static_cast<int>((bits & 0x0FU) << 3) + kBias) * (1 << (bits >> 4 & 7U)) - kBias;
  return static_cast<std::int16_t>((bits & 0x80U) != 0 ? -magnitude : magnitude);
}

}  // namespace zelkapi

#endif
