// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelk {

// The profile functions of Windows, on every system: names without regard to case, the first match wins, blanks around
// names and values are dropped, a missing file, section or key gives the default. The file is read afresh at each call.
// Thread: any.

// Decimal, with sign; text after the number is ignored, a value that does not begin with a number gives 0.
int32_t ReadProfileInt(const std::string& path, const char* section, const char* key, int32_t defaultValue);

// The value's text, cut to capacity - 1 characters; one pair of quotes around it is dropped.
std::string ReadProfileString(const std::string& path, const char* section, const char* key, const char* defaultValue,
                              size_t capacity);

}  // namespace zelk
