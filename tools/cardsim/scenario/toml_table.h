// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <toml.hpp>
#include <vector>

namespace cardsim {

// Throws CScenarioError with the place of the value.
[[noreturn]] void FailAt(const toml::value& value, const std::string& text);

// Job: reads a table member by member, so that a member that nobody asked for is noticed. All throw CScenarioError for
// a member of the wrong kind. Thread: one. Keeps a reference to the table.
class CTomlTable {
 public:
  explicit CTomlTable(const toml::value& tableValue);

  const toml::value* Find(const std::string& key);
  // Where to point at when a member is missing.
  const toml::value& Whole() const { return table; }

  std::optional<std::string> Text(const std::string& key);
  std::optional<int> Integer(const std::string& key, int least, int most);
  std::optional<double> Number(const std::string& key, double least, double most);
  // As in "5s", "200ms", "2m".
  std::optional<std::chrono::milliseconds> Time(const std::string& key);
  // As in "2/s", "30/m": so many a second.
  std::optional<double> Rate(const std::string& key);
  // As in "1e 02 81 88".
  std::optional<std::vector<unsigned char>> Hex(const std::string& key);

  // Throws for the first member that was not asked for.
  void RequireAllKnown() const;

 private:
  const toml::value& table;
  std::set<std::string> asked;
};

}  // namespace cardsim
