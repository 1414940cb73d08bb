// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini_file.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/file.h"
#include "platform/ini_text.h"

namespace zelk {

namespace {

// Far above any settings file; what lies beyond it is not read, so that a wrong file cannot fill the memory.
constexpr uint64_t kMaxIniBytes = 16U << 20;

// A file that cannot be read reads as an empty one: every key then gives its default.
std::string ReadWhole(const std::string& path) {
  CReadFile file;
  std::string text;
  if (file.Open(path.c_str())) {
    text.resize(static_cast<size_t>(std::min(file.Size(), kMaxIniBytes)));
    text.resize(file.ReadAt(0, text.data(), text.size()));
  }
  return text;
}

std::string_view OrEmpty(const char* text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

}  // namespace

int32_t ReadIniFileInt(const std::string& path, const char* section, const char* key, int32_t defaultValue) {
  const std::string text = ReadWhole(path);
  const std::optional<std::string_view> value = FindProfileValue(text, OrEmpty(section), OrEmpty(key));
  return value.has_value() && !value->empty() ? ProfileNumber(*value) : defaultValue;
}

std::string ReadIniFileString(const std::string& path, const char* section, const char* key, const char* defaultValue,
                              size_t capacity) {
  const std::string text = ReadWhole(path);
  const std::optional<std::string_view> value = FindProfileValue(text, OrEmpty(section), OrEmpty(key));
  return std::string(value.value_or(OrEmpty(defaultValue)).substr(0, capacity == 0 ? 0 : capacity - 1));
}

}  // namespace zelk
