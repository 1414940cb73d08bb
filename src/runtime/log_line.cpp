// SPDX-License-Identifier: GPL-2.0-only
#include "runtime/log_line.h"

#include <algorithm>
#include <cstring>

#include "runtime/format.h"

namespace zelk {

namespace {

constexpr std::string_view kEnd = "\r\n";

char* PutText(char* to, std::string_view text) {
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

// Decimal, padded on the left to a width.
char* PutNumber(char* to, uint32_t value, ptrdiff_t width, char padding, bool isNegative = false) {
  constexpr ptrdiff_t kMostChars = 11;  // ten digits and a sign, more than any width
  char characters[kMostChars];
  char* const end = characters + kMostChars;
  char* first = end;
  do {
    *--first = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  if (isNegative) {
    *--first = '-';
  }
  while (end - first < width) {
    *--first = padding;
  }
  return PutText(to, {first, static_cast<size_t>(end - first)});
}

// "00" to "99".
constexpr auto kPairs = [] {
  std::array<char, 200> pairs{};
  for (size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

char* PutPair(char* to, uint32_t value) {
  std::memcpy(to, &kPairs[size_t{value} * 2], 2);
  return to + 2;
}

char* PutTwo(char* to, uint32_t value) {
  return value < 100 ? PutPair(to, value) : PutNumber(to, value, 2, '0');
}

char* PutFour(char* to, uint32_t value) {
  return value < 10000 ? PutPair(PutPair(to, value / 100), value % 100) : PutNumber(to, value, 4, '0');
}

char* PutTime(char* to, const SLocalTime& time) {
  to = PutTwo(to, time.day);
  *to++ = '/';
  to = PutTwo(to, time.month);
  *to++ = '/';
  to = PutFour(to, time.year);
  *to++ = ' ';
  to = PutTwo(to, time.hour);
  *to++ = ':';
  to = PutTwo(to, time.minute);
  *to++ = ':';
  return PutTwo(to, time.second);
}

char* PutTag(char* to, int32_t channel) {
  if (channel == kGeneralLine) {
    return PutText(to, "   G :");
  }
  *to++ = ' ';
  const auto value = static_cast<uint32_t>(channel);
  to = channel < 0 ? PutNumber(to, 0 - value, 3, ' ', true) : PutNumber(to, value, 3, ' ');
  return PutText(to, " :");
}

}  // namespace

// By hand, because printf would take most of the time that a line costs its caller.
CLogLine::CLogLine(const SLocalTime& time, const char* text, int32_t channel) {
  const std::string_view shown = text == nullptr ? "" : text;
  const auto headChars = static_cast<size_t>(PutTag(PutTime(start, time), channel) - start);
  const size_t textChars = std::min(shown.size(), kMaxFormattedChars - headChars);
  const size_t endChars = std::min(kEnd.size(), kMaxFormattedChars - headChars - textChars);
  count = headChars + textChars + endChars;
  if (count > kCharsHere) {
    longer.reserve(count);
    longer.assign(start, headChars).append(shown, 0, textChars).append(kEnd, 0, endChars);
    start = longer.data();
    return;
  }
  PutText(PutText(start + headChars, shown.substr(0, textChars)), kEnd.substr(0, endChars));
}

}  // namespace zelk
