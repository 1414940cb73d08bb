// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/delivery.h"

#include <charconv>
#include <string_view>
#include <vector>

namespace fleet {

namespace {

std::vector<std::string> TokensOf(const std::string& subject) {
  std::vector<std::string> tokens(1);
  for (const char byte : subject) {
    if (byte == '.') {
      tokens.emplace_back();
    } else {
      tokens.back() += byte;
    }
  }
  return tokens;
}

bool Read(const std::string& text, uint64_t& number) {
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

}  // namespace

std::optional<SDelivery> ParseDelivery(const std::string& ackSubject) {
  constexpr size_t kTokens = 9;
  constexpr size_t kLongTokens = 11;  // with domain and account, and perhaps more behind
  const std::vector<std::string> tokens = TokensOf(ackSubject);
  if ((tokens.size() != kTokens && tokens.size() < kLongTokens) || tokens[0] != "$JS" || tokens[1] != "ACK") {
    return std::nullopt;
  }
  const size_t first = tokens.size() == kTokens ? 4 : 6;
  SDelivery delivery;
  const bool isRead = Read(tokens[first], delivery.times) && Read(tokens[first + 1], delivery.sequence) &&
                      Read(tokens[first + 4], delivery.pending);
  return isRead ? std::optional(delivery) : std::nullopt;
}

std::optional<std::string> FromBase64(const std::string& text) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  uint32_t bits = 0;
  int count = 0;
  const size_t end = text.find_last_not_of('=');
  for (size_t i = 0; end != std::string::npos && i <= end; ++i) {
    const size_t digit = kDigits.find(text[i]);
    if (digit == std::string_view::npos) {
      return std::nullopt;
    }
    bits = bits << 6 | static_cast<uint32_t>(digit);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count & 0xFF);
    }
  }
  return bytes;
}

}  // namespace fleet
