// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/format.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace zelk {

CFormattedText::CFormattedText(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int needed = std::vsnprintf(scratch.data(), scratch.size(), format, arguments);
  if (needed < 0) {
    scratch[0] = '\0';  // a conversion that the locale does not know
  } else {
    count = std::min(static_cast<size_t>(needed), kMaxFormattedChars);
  }
  if (count > kScratchChars) {
    longer.resize(count);
    std::vsnprintf(longer.data(), longer.size() + 1, format, again);
  }
  va_end(again);
}

void CFormattedText::MoveTo(std::string& target) {
  if (longer.empty()) {
    target.assign(scratch.data(), count);
  } else {
    target = std::move(longer);
  }
}

void FormatString(std::string& target, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  FormatStringV(target, format, arguments);
  va_end(arguments);
}

// An argument may point into the target, so the result is built apart from it.
void FormatStringV(std::string& target, const char* format, va_list arguments) {
  CFormattedText(format, arguments).MoveTo(target);
}

}  // namespace zelk
