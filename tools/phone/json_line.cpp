// SPDX-License-Identifier: GPL-2.0-only
#include "phone/json_line.h"

#include <cstdio>

namespace phone {

std::string IsoTime(UtcTime time) {
  using std::chrono::milliseconds;
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss<milliseconds> clock(std::chrono::floor<milliseconds>(time - day));
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

std::string JsonLine(const char* type, UtcTime time, const Json& fields) {
  Json line = {{"type", type}, {"time", IsoTime(time)}};
  for (const auto& [name, value] : fields.items()) {
    line[name] = value;
  }
  return line.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::string TextOfLine(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    if (code < 0x80) {
      text += byte;
    } else {
      text += static_cast<char>(0xC0 | code >> 6);
      text += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return text;
}

}  // namespace phone
