// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/scan_float.h"

#include <charconv>
#include <limits>

namespace zelk {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

bool TakeSign(std::string_view& text) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) {
    text.remove_prefix(1);
  }
  return negative;
}

bool TakeHexPrefix(std::string_view& text) {
  const bool isHex = text.size() >= 3 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (isHex) {
    text.remove_prefix(2);
  }
  return isHex;
}

// from_chars says only that the number is out of range. On which side, the exponent's sign tells: the texts are far too
// short for the digits alone to leave the range downward, and with a negative exponent too short to leave it upward.
float OutOfRange(std::string_view text, std::chars_format format) {
  const size_t exponent = text.find_first_of(format == std::chars_format::hex ? "pP" : "eE");
  const bool isTiny = exponent != std::string_view::npos && exponent + 1 < text.size() && text[exponent + 1] == '-';
  return isTiny ? 0.0F : std::numeric_limits<float>::infinity();
}

}  // namespace

bool ScanFloat(std::string_view text, float& value) {
  const size_t begin = text.find_first_not_of(kWhiteSpace);
  if (begin == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(begin);
  const bool negative = TakeSign(text);
  std::string_view digits = text;
  std::chars_format format = TakeHexPrefix(digits) ? std::chars_format::hex : std::chars_format::general;
  if (digits.empty() || digits.front() == '-') {
    return false;  // a second sign, which from_chars would take
  }
  float magnitude = 0.0F;
  std::from_chars_result result = std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, format);
  if (result.ec == std::errc::invalid_argument && format == std::chars_format::hex) {
    magnitude = 0.0F;  // "0x" without digits is the number 0 and text after it
    result.ec = std::errc();
  }
  if (result.ec == std::errc::invalid_argument) {
    return false;
  }
  if (result.ec == std::errc::result_out_of_range) {
    double wide = 0.0;
    const std::errc wideError = std::from_chars(digits.data(), digits.data() + digits.size(), wide, format).ec;
    magnitude = wideError == std::errc() ? static_cast<float>(wide) : OutOfRange(digits, format);
  }
  value = negative ? -magnitude : magnitude;
  return true;
}

}  // namespace zelk
