// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/toml_table.h"

#include <cctype>
#include <charconv>

#include "cardsim/scenario/scenario.h"

namespace cardsim {

void FailAt(const toml::value& value, const std::string& text) {
  const toml::source_location place = value.location();
  throw CScenarioError(place.file_name() + ":" + std::to_string(place.line()) + ":" + std::to_string(place.column()) +
                       ": " + text);
}

namespace {

// A number and the unit after it; nothing for other texts.
struct SQuantity {
  double number;
  std::string unit;
};

std::optional<SQuantity> QuantityOf(const std::string& text) {
  const std::size_t end = text.find_first_not_of("0123456789.");
  if (end == 0 || end == std::string::npos) {
    return std::nullopt;
  }
  double number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + end, number);
  if (error != std::errc() || stop != text.data() + end) {
    return std::nullopt;
  }
  return SQuantity{number, text.substr(end)};
}

}  // namespace

CTomlTable::CTomlTable(const toml::value& tableValue) : table(tableValue) {
  if (!table.is_table()) {
    FailAt(table, "a table is wanted");
  }
}

const toml::value* CTomlTable::Find(const std::string& key) {
  asked.insert(key);
  const auto& members = table.as_table();
  const auto found = members.find(key);
  return found == members.end() ? nullptr : &found->second;
}

std::optional<std::string> CTomlTable::Text(const std::string& key) {
  const toml::value* value = Find(key);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (!value->is_string()) {
    FailAt(*value, key + " is no text");
  }
  return value->as_string().str;
}

std::optional<int> CTomlTable::Integer(const std::string& key, int least, int most) {
  const toml::value* value = Find(key);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (!value->is_integer() || value->as_integer() < least || value->as_integer() > most) {
    FailAt(*value, key + " is no integer from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return static_cast<int>(value->as_integer());
}

std::optional<double> CTomlTable::Number(const std::string& key, double least, double most) {
  const toml::value* value = Find(key);
  if (value == nullptr) {
    return std::nullopt;
  }
  const bool isNumber = value->is_integer() || value->is_floating();
  const double number =
      value->is_integer() ? static_cast<double>(value->as_integer()) : (isNumber ? value->as_floating() : least - 1);
  if (!(number >= least && number <= most)) {
    FailAt(*value, key + " is no number from " + std::to_string(static_cast<int>(least)) + " to " +
                       std::to_string(static_cast<int>(most)));
  }
  return number;
}

std::optional<std::chrono::milliseconds> CTomlTable::Time(const std::string& key) {
  constexpr double kLongestMs = 24.0 * 3600 * 1000;
  const std::optional<std::string> text = Text(key);
  if (!text) {
    return std::nullopt;
  }
  const std::optional<SQuantity> quantity = QuantityOf(*text);
  const double unitMs = !quantity                ? 0
                        : quantity->unit == "ms" ? 1
                        : quantity->unit == "s"  ? 1000
                        : quantity->unit == "m"  ? 60000
                                                 : 0;
  if (unitMs == 0 || quantity->number * unitMs > kLongestMs) {
    FailAt(*Find(key), key + " is no time such as \"200ms\", \"5s\" or \"2m\", a day at most");
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(quantity->number * unitMs));
}

std::optional<double> CTomlTable::Rate(const std::string& key) {
  constexpr double kMost = 1000;
  const std::optional<std::string> text = Text(key);
  if (!text) {
    return std::nullopt;
  }
  const std::optional<SQuantity> quantity = QuantityOf(*text);
  const double perSecond = !quantity                ? 0
                           : quantity->unit == "/s" ? quantity->number
                           : quantity->unit == "/m" ? quantity->number / 60
                                                    : 0;
  if (perSecond <= 0 || perSecond > kMost) {
    FailAt(*Find(key), key + " is no rate such as \"2/s\" or \"30/m\", 1000 a second at most");
  }
  return perSecond;
}

std::optional<std::vector<unsigned char>> CTomlTable::Hex(const std::string& key) {
  const std::optional<std::string> text = Text(key);
  if (!text) {
    return std::nullopt;
  }
  std::string digits;
  for (const char c : *text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
      digits += c;
    } else if (c != ' ') {
      FailAt(*Find(key), key + " is no bytes such as \"1e 02 81 88\"");
    }
  }
  if (digits.size() % 2 != 0) {
    FailAt(*Find(key), key + " ends in the middle of a byte");
  }
  std::vector<unsigned char> bytes(digits.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, bytes[i], 16);
  }
  return bytes;
}

void CTomlTable::RequireAllKnown() const {
  for (const auto& [key, value] : table.as_table()) {
    if (asked.count(key) == 0) {
      FailAt(value, "\"" + key + "\" is not known here");
    }
  }
}

}  // namespace cardsim
