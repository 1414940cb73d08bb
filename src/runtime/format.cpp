// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace zelk {

namespace {

constexpr size_t kScratchChars = 2048;

}  // namespace

void FormatString(std::string& target, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  FormatStringV(target, format, arguments);
  va_end(arguments);
}

// An argument may point into the target, so the result is built apart from it.
void FormatStringV(std::string& target, const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::array<char, kScratchChars + 1> scratch;
  const int needed = std::vsnprintf(scratch.data(), scratch.size(), format, arguments);
  if (needed < 0) {
    target.clear();  // a conversion that the locale does not know
  } else if (static_cast<size_t>(needed) <= kScratchChars) {
    target.assign(scratch.data(), static_cast<size_t>(needed));
  } else {
    std::string result(std::min(static_cast<size_t>(needed), kMaxFormattedChars), '\0');
    std::vsnprintf(result.data(), result.size() + 1, format, again);
    target = std::move(result);
  }
  va_end(again);
}

}  // namespace zelk
