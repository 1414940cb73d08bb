/* SPDX-License-Identifier: GPL-2.0-only */

/**
 * @file
 * DTMF digits as sound.
 */
#ifndef ZELK_CPP_DIGITS_HPP
#define ZELK_CPP_DIGITS_HPP

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zelk/ZelkApi.h"
#include "zelk/cpp/Alaw.hpp"
#include "zelk/cpp/Error.hpp"

namespace zelkapi {

/** Renders DTMF digits (ITU-T Q.23) as A-law, for Channel::play. */
class Digits {
 public:
  static constexpr int kToneMs = 100;  /**< length of a tone where none is said */
  static constexpr int kPauseMs = 100; /**< length of a pause where none is said */

  /**
   * The digits' tones, each with its pause behind it, at -9 dBm0 a frequency.
   * @param digits   of 0-9, A-D, * and #; throws BadArgument for any other
   * @param toneMs   length of a tone, 40 or more for a receiver to take it
   * @param pauseMs  length of a pause
   */
  static std::vector<std::uint8_t> render(std::string_view digits, int toneMs = kToneMs, int pauseMs = kPauseMs) {
    if (toneMs < 1 || pauseMs < 0) {
      throw BadArgument("a digit has a tone of 1 ms or more");
    }
    std::vector<std::uint8_t> alaw;
    alaw.reserve(digits.size() * bytesOf(toneMs + pauseMs));
    for (const char digit : digits) {
      addTone(alaw, keyOf(digit), bytesOf(toneMs));
      alaw.insert(alaw.end(), bytesOf(pauseMs), kSilence);
    }
    return alaw;
  }

 private:
  static constexpr std::size_t bytesOf(int ms) { return static_cast<std::size_t>(ms) * ZELK_BYTES_PER_MS; }

  static std::size_t keyOf(char digit) {
    const std::size_t key = std::string_view("123A456B789C*0#D").find(digit);
    if (key == std::string_view::npos) {
      throw BadArgument(std::string("there is no DTMF digit '") + digit + "'");
    }
    return key;
  }

  static void addTone(std::vector<std::uint8_t>& alaw, std::size_t key, std::size_t samples) {
    constexpr double kRows[] = {697, 770, 852, 941};
    constexpr double kColumns[] = {1209, 1336, 1477, 1633};
    // A full-scale sine has 3.14 dBm0.
    constexpr double kAmplitude = 32256.0 * 0.24717;
    constexpr double kTurn = 6.283185307179586 / double{ZELK_SAMPLE_RATE};
    for (std::size_t i = 0; i < samples; ++i) {
      const double angle = kTurn * static_cast<double>(i);
      const double sum = std::sin(angle * kRows[key / 4]) + std::sin(angle * kColumns[key % 4]);
      alaw.push_back(linearToAlaw(static_cast<int>(std::lround(kAmplitude * sum))));
    }
  }
};

}  // namespace zelkapi

#endif
