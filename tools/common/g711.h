// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

namespace tool {

// A-law of ITU-T G.711 with even bits inverted, 16-bit linear on the other side.
std::uint8_t EncodeALaw(std::int16_t linear);
std::int16_t DecodeALaw(std::uint8_t code);

// Peak amplitude (16-bit) of a sine of the given level: full scale is +3.14 dBm0.
double AmplitudeOfDbm0(double level);
// Level of a block of A-law samples by their mean power.
double Dbm0OfALaw(const std::uint8_t* samples, std::size_t count);

}  // namespace tool
