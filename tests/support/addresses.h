// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>

#include "platform/ipv4_address.h"

namespace zelk {

// Addresses by their dotted text, which the library never needs. Throws when the text is no address.
inline SIpv4Address Address(const std::string& text) {
  std::array<uint8_t, 4> bytes{};
  char rest = '\0';
  if (std::sscanf(text.c_str(), "%hhu.%hhu.%hhu.%hhu%c", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &rest) != 4) {
    throw std::invalid_argument(text + " is no IPv4 address");
  }
  SIpv4Address address;
  std::memcpy(&address.networkOrder, bytes.data(), bytes.size());
  return address;
}

inline std::string TextOf(SIpv4Address address) {
  std::array<uint8_t, 4> bytes{};
  std::memcpy(bytes.data(), &address.networkOrder, bytes.size());
  std::string text;
  for (const uint8_t byte : bytes) {
    text += (text.empty() ? "" : ".") + std::to_string(byte);
  }
  return text;
}

inline void PrintTo(const SIpv4Address& address, std::ostream* out) {
  *out << TextOf(address);
}

}  // namespace zelk
