// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelk {

// The reading of ini.h without help of the system: what it is where the system has no such functions, and what the
// others are compared with. The same contract.
int32_t ReadIniFileInt(const std::string& path, const char* section, const char* key, int32_t defaultValue);
std::string ReadIniFileString(const std::string& path, const char* section, const char* key, const char* defaultValue,
                              size_t capacity);

}  // namespace zelk
