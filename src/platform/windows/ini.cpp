// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini.h"

#include <windows.h>

#include <algorithm>
#include <vector>

namespace zelk {

namespace {

// The system's function takes no longer buffer.
constexpr size_t kMostChars = 65535;

// A path that is too long for the system becomes one that no file has: what its functions do with the long one is not
// defined (Wine's read the file of the call before).
const char* SystemPath(const std::string& path) {
  return path.size() < MAX_PATH ? path.c_str() : "?";
}

}  // namespace

int32_t ReadProfileInt(const std::string& path, const char* section, const char* key, int32_t defaultValue) {
  if (section == nullptr || key == nullptr) {
    return defaultValue;
  }
  return static_cast<int32_t>(GetPrivateProfileIntA(section, key, defaultValue, SystemPath(path)));
}

// Without a section or a key the system's function would list them all.
std::string ReadProfileString(const std::string& path, const char* section, const char* key, const char* defaultValue,
                              size_t capacity) {
  std::vector<char> text(std::min(capacity, kMostChars) + 1);
  const auto size = static_cast<DWORD>(text.size() - 1);
  const DWORD length = GetPrivateProfileStringA(section == nullptr ? "" : section, key == nullptr ? "" : key,
                                                defaultValue, text.data(), size, SystemPath(path));
  return {text.data(), std::min<size_t>(length, size)};
}

}  // namespace zelk
