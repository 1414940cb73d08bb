// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cardsim/audio/audio_source.h"

namespace soak {

using cardsim::Bytes;

// What both programs know of a call by its number: what each side sends, and how it ends. A call from the library has
// its number as the called one, a call to it as the calling one.
struct SCallRules {
  explicit SCallRules(uint32_t callNumber) : number(callNumber) {}

  // What the far end dials before its sound: four digits.
  std::string Digits() const {
    static constexpr char kDigits[] = "1593D0#7A2C8*46B";
    std::string digits;
    for (uint32_t i = 0; i < 4; ++i) {
      digits += kDigits[(number >> (4 * i)) % 16];
    }
    return digits;
  }
  Bytes FromFarEnd() const {
    Bytes sound = cardsim::RenderDtmf(Digits(), 80, 80, -9);
    const Bytes noise = Noise(0);
    sound.insert(sound.end(), noise.begin(), noise.end());
    return Marked(std::move(sound));
  }
  Bytes FromApplication() const { return Marked(Noise(1)); }

  bool IsRefused() const { return number % 16 == 7; }
  bool IsNeverAnswered() const { return number % 16 == 9; }
  bool IsRejected() const { return number % 16 == 5; }  // by the application
  bool EndsAtFarEnd() const { return number % 3 == 0; }
  uint32_t FarEndMs() const { return 500 + number * 7919 % 4000; }

 private:
  static constexpr uint8_t kMark = 0x2A;  // no silence, so that the start can be heard

  Bytes Noise(uint32_t direction) const {
    return cardsim::RenderTestPattern(4000 + number * 31 % 12000, number * 2 + direction);
  }
  static Bytes Marked(Bytes sound) {
    sound[0] = kMark;
    return sound;
  }

  uint32_t number;
};

inline uint32_t NumberOf(const std::string& text) {
  return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

inline bool IsSilent(uint8_t byte) {
  return byte == 0xD5 || byte == 0x54;
}

// What is wrong with what was heard of a sound; empty when nothing is. Silence may go before it and must follow it. Of
// a call that the other side ended a part may be missing at the end.
inline std::string FaultOf(const Bytes& heard, const Bytes& sound, bool isWhole) {
  const auto start = std::find_if_not(heard.begin(), heard.end(), IsSilent);
  const auto left = static_cast<size_t>(heard.end() - start);
  const size_t compared = std::min(left, sound.size());
  const auto wrong = std::mismatch(start, start + static_cast<ptrdiff_t>(compared), sound.begin()).first;
  if (wrong != start + static_cast<ptrdiff_t>(compared)) {
    return "differs from its byte " + std::to_string(wrong - start) + " on";
  }
  if (isWhole && left < sound.size()) {
    return std::to_string(sound.size() - left) + " of " + std::to_string(sound.size()) + " bytes are missing";
  }
  const bool isQuietAfter = std::all_of(start + static_cast<ptrdiff_t>(compared), heard.end(), IsSilent);
  return isQuietAfter ? "" : "is followed by another";
}

}  // namespace soak
