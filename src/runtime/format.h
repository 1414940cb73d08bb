// SPDX-License-Identifier: GPL-2.0-only
#pragma once

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

}  // namespace zelk
