// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace doctor {

// A line of an ini file that the library takes for a setting. Lines count from 1.
struct SIniKey {
  int line = 0;
  std::string name;
  std::string value;  // without the quotes
};

struct SIniSection {
  int line = 0;
  std::string name;
  std::vector<SIniKey> keys;
};

struct SIniText {
  std::vector<SIniSection> sections;  // in their order; the same name may come again
  std::vector<SIniKey> before;        // settings above the first section
  bool isUtf16 = false;
};

// As the library reads it (docs/configuration.md): blanks around names and values go, ; begins a comment line, one pair
// of quotes goes, a zero byte ends a value. Any bytes are allowed.
SIniText ReadIni(const std::string& text);

bool IsSameName(const std::string& left, const std::string& right);
// The number at the begin of a value, as the library takes it; 0 where there is none.
std::int32_t IniNumber(const std::string& value);

}  // namespace doctor
