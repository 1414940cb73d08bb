// SPDX-License-Identifier: GPL-2.0-only
#include "platform/ini_text.h"

#include <algorithm>

namespace zelk {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\v\f\r";

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool SameName(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

std::string_view TakeLine(std::string_view& text) {
  const size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return Trim(line);
}

bool IsComment(std::string_view line) {
  return !line.empty() && line.front() == ';';
}

std::optional<std::string_view> SectionName(std::string_view line) {
  const size_t end = line.find(']');
  if (line.empty() || line.front() != '[' || end == std::string_view::npos) {
    return std::nullopt;
  }
  return Trim(line.substr(1, end - 1));
}

std::string_view DropQuotes(std::string_view value) {
  const bool quoted =
      value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front();
  return quoted ? value.substr(1, value.size() - 2) : value;
}

std::string_view CleanValue(std::string_view raw) {
  return DropQuotes(Trim(raw.substr(0, raw.find('\0'))));
}

// The value on a line, when the line is one of this key.
std::optional<std::string_view> ValueOnLine(std::string_view line, std::string_view key) {
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos || !SameName(Trim(line.substr(0, equals)), key)) {
    return std::nullopt;
  }
  return CleanValue(line.substr(equals + 1));
}

// Moves the text past the heading of the section; false when there is none.
bool EnterSection(std::string_view& text, std::string_view section) {
  while (!text.empty()) {
    const std::optional<std::string_view> name = SectionName(TakeLine(text));
    if (name.has_value() && SameName(*name, section)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<std::string_view> FindProfileValue(std::string_view text, std::string_view section,
                                                 std::string_view key) {
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  if (!EnterSection(text, Trim(section))) {
    return std::nullopt;
  }
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    if (SectionName(line).has_value()) {
      return std::nullopt;
    }
    const std::optional<std::string_view> value = IsComment(line) ? std::nullopt : ValueOnLine(line, Trim(key));
    if (value.has_value()) {
      return value;
    }
  }
  return std::nullopt;
}

int32_t ProfileNumber(std::string_view value) {
  value = Trim(value);
  const bool negative = !value.empty() && value.front() == '-';
  if (!value.empty() && (value.front() == '-' || value.front() == '+')) {
    value.remove_prefix(1);
  }
  uint32_t number = 0;
  for (const char character : value) {
    if (character < '0' || character > '9') {
      break;
    }
    number = number * 10U + static_cast<uint32_t>(character - '0');
  }
  return static_cast<int32_t>(negative ? 0U - number : number);
}

}  // namespace zelk
