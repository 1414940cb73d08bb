// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace phone {

// Why the library did not take a sound: a ZelkError in words.
const char* PlayErrorText(uint32_t error);

}  // namespace phone
