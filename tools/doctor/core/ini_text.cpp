// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/ini_text.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace doctor {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\v\f\r";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

char Lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string ValueOf(std::string_view raw) {
  const std::string_view value = Trim(raw.substr(0, raw.find('\0')));
  const bool isQuoted =
      value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front();
  return std::string(isQuoted ? value.substr(1, value.size() - 2) : value);
}

std::optional<std::string> SectionName(std::string_view line) {
  const std::size_t end = line.find(']');
  if (line.empty() || line.front() != '[' || end == std::string_view::npos) {
    return std::nullopt;
  }
  return std::string(Trim(line.substr(1, end - 1)));
}

bool IsUtf16(std::string_view text) {
  return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF");
}

}  // namespace

SIniText ReadIni(const std::string& text) {
  SIniText ini;
  std::string_view rest = text;
  ini.isUtf16 = IsUtf16(rest);
  rest.remove_prefix(rest.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
  for (int number = 1; !rest.empty(); ++number) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = Trim(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    const std::size_t equals = line.find('=');
    if (std::optional<std::string> name = SectionName(line)) {
      ini.sections.push_back({number, std::move(*name), {}});
    } else if (!line.empty() && line.front() != ';' && equals != std::string_view::npos) {
      std::vector<SIniKey>& keys = ini.sections.empty() ? ini.before : ini.sections.back().keys;
      keys.push_back({number, std::string(Trim(line.substr(0, equals))), ValueOf(line.substr(equals + 1))});
    }
  }
  return ini;
}

bool IsSameName(const std::string& left, const std::string& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

std::int32_t IniNumber(const std::string& value) {
  std::string_view text = Trim(value);
  const bool isNegative = text.starts_with('-');
  text.remove_prefix(isNegative || text.starts_with('+') ? 1 : 0);
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number = number * 10U + static_cast<std::uint32_t>(text[i] - '0');
  }
  return static_cast<std::int32_t>(isNegative ? 0U - number : number);
}

}  // namespace doctor
