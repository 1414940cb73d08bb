// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/endpoint.h"

#include <charconv>
#include <system_error>

namespace cardsim {

std::optional<std::uint32_t> ParseIpv4(const std::string& text) {
  std::uint32_t address = 0;
  const char* at = text.data();
  const char* end = at + text.size();
  for (int part = 0; part < 4; ++part) {
    unsigned value = 256;
    const auto [next, error] = std::from_chars(at, end, value);
    const bool separated = part == 3 ? next == end : next != end && *next == '.';
    if (error != std::errc() || value > 255 || !separated) {
      return std::nullopt;
    }
    address = (address << 8) | value;
    at = next + 1;
  }
  return address;
}

std::string FormatIpv4(std::uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string((address >> shift) & 0xFF) + (shift > 0 ? "." : "");
  }
  return text;
}

SEndpoint ToEndpoint(const std::string& address, std::uint16_t port) {
  const std::optional<std::uint32_t> parsed = ParseIpv4(address);
  if (!parsed) {
    throw std::system_error(std::make_error_code(std::errc::invalid_argument), address);
  }
  return {*parsed, port};
}

}  // namespace cardsim
