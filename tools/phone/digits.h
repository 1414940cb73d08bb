// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace phone {

// DTMF digits as A-law sound for ZELK_PlayBuffer: 0-9, *, #, A-D (or a-d), 80 ms each with 80 ms of silence after it,
// at -9 dBm0 a tone; a comma is a pause of a second. Throws std::invalid_argument for any other character.
std::vector<uint8_t> RenderDigits(const std::string& digits);

}  // namespace phone
