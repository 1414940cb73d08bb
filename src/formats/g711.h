// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

namespace zelk {

// ITU-T G.711 elementary steps, shared by the echo canceller, the digit detector and the sample formats.
// Thread: any; constant tables, no state.
constexpr uint8_t kALawSilence = 0xD5;  // +8, the smallest positive value
constexpr uint8_t kIdleByte = 0x54;     // what a channel with nothing to send carries

// The expansions as tables, for loops over whole blocks. Constant-initialised: usable before any constructor runs.
extern const std::array<int16_t, 256> kALawExpansion;
extern const std::array<int16_t, 256> kMuLawExpansion;

inline int16_t ALawToLinear(uint8_t code) {
  return kALawExpansion[code];
}
inline int16_t MuLawToLinear(uint8_t code) {
  return kMuLawExpansion[code];
}
uint8_t LinearToALaw(int16_t sample);   // magnitude clipped to 32635; -32768 gives 0x55
uint8_t LinearToMuLaw(int16_t sample);  // no treatment of the all-zero code; -32768 gives 0x7F

}  // namespace zelk
