// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace zelk {

// The channel value of a line that belongs to no channel.
constexpr int32_t kGeneralLine = -1;

// One line as it stands in the file: local date (day first) and time, the channel in three columns or G, the text,
// CR LF. A line longer than FormatString allows is cut, its end included.
// Thread: any; a caller's own, on its stack. The constructor throws std::bad_alloc for a long line that finds no
// memory.
class CLogLine {
 public:
  // text may be null, which is an empty one.
  CLogLine(const SLocalTime& time, const char* text, int32_t channel);
  CLogLine(const CLogLine&) = delete;
  CLogLine& operator=(const CLogLine&) = delete;

  std::string_view Characters() const { return {start, count}; }

 private:
  static constexpr size_t kCharsHere = 1024;  // the usual line takes no memory

  std::array<char, kCharsHere> here;
  std::string longer;
  char* start = here.data();
  size_t count = 0;
};

}  // namespace zelk
