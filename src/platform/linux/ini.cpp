// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini.h"

#include "platform/ini_file.h"

namespace zelk {

int32_t ReadProfileInt(const std::string& path, const char* section, const char* key, int32_t defaultValue) {
  return ReadIniFileInt(path, section, key, defaultValue);
}

std::string ReadProfileString(const std::string& path, const char* section, const char* key, const char* defaultValue,
                              size_t capacity) {
  return ReadIniFileString(path, section, key, defaultValue, capacity);
}

}  // namespace zelk
