// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

namespace phone {

struct SInputLine {
  std::string text;        // without its end
  bool isTooLong = false;  // the text has been dropped
};

// Makes lines of bytes as they come. A line ends with LF or CR LF; the last one needs no end.
class CLineSplitter {
 public:
  static constexpr size_t kLongest = size_t{64} * 1024;

  // Appends the lines that these bytes complete.
  void Feed(std::string_view bytes, std::deque<SInputLine>& lines);
  // Appends what is left when no more comes.
  void End(std::deque<SInputLine>& lines);

 private:
  void Append(std::string_view bytes);
  void Emit(std::deque<SInputLine>& lines);

  SInputLine current;
};

}  // namespace phone
