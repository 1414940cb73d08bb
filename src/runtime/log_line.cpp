// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_line.h"

#include "runtime/format.h"

namespace zelk {

void BuildLogLine(std::string& line, const SLocalTime& time, const char* text, int32_t channel) {
  const char* shown = text == nullptr ? "" : text;
  const auto [year, month, day, hour, minute, second] = time;
  if (channel == kGeneralLine) {
    FormatString(line, "%02u/%02u/%04u %02u:%02u:%02u   G :%s\r\n", day, month, year, hour, minute, second, shown);
  } else {
    FormatString(line, "%02u/%02u/%04u %02u:%02u:%02u %3d :%s\r\n", day, month, year, hour, minute, second, channel,
                 shown);
  }
}

}  // namespace zelk
