// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "platform/clock.h"

namespace zelk {

// The channel value of a line that belongs to no channel.
constexpr int32_t kGeneralLine = -1;

// One line as it stands in the file: local date (day first) and time, the channel in three columns or G, the text,
// CR LF. A line longer than FormatString allows is cut, its end included. Thread: any.
void BuildLogLine(std::string& line, const SLocalTime& time, const char* text, int32_t channel);

}  // namespace zelk
