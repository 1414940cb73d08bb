// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <string>

namespace zelk {

// The longest text FormatString makes, in characters, without the terminating zero.
constexpr size_t kMaxFormattedChars = 43008;

// printf-style formatting into a growable string, whose content is replaced. A longer result is cut.
// Thread: any.
void FormatString(std::string& target, const char* format, ...) __attribute__((format(printf, 2, 3)));
void FormatStringV(std::string& target, const char* format, va_list arguments);

// The same text where it is needed only for a moment: up to 2048 characters take no memory.
// Thread: any; a caller's own, on its stack.
class CFormattedText {
 public:
  CFormattedText(const char* format, va_list arguments);
  CFormattedText(const CFormattedText&) = delete;
  CFormattedText& operator=(const CFormattedText&) = delete;

  const char* Text() const { return longer.empty() ? scratch.data() : longer.c_str(); }
  void MoveTo(std::string& target);

 private:
  static constexpr size_t kScratchChars = 2048;

  std::array<char, kScratchChars + 1> scratch;
  size_t count = 0;
  std::string longer;
};

}  // namespace zelk
