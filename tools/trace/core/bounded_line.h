// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <istream>
#include <string>

namespace trace {

// The next line without its end, of which no more than `most` characters are kept: a file of one line without an end
// must not take the memory of its size. False when there is none.
inline bool ReadLine(std::istream& in, std::string& line, std::size_t most) {
  using Traits = std::istream::traits_type;
  line.clear();
  std::streambuf* const buffer = in.rdbuf();
  int letter = in ? buffer->sbumpc() : Traits::eof();
  if (letter == Traits::eof()) {
    in.setstate(std::ios::eofbit | std::ios::failbit);
    return false;
  }
  for (; letter != Traits::eof() && letter != '\n'; letter = buffer->sbumpc()) {
    if (line.size() < most) {
      line += Traits::to_char_type(letter);
    }
  }
  return true;
}

}  // namespace trace
