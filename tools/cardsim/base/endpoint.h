// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace cardsim {

// An IPv4 address as a number (127.0.0.1 is 0x7F000001) and a port.
struct SEndpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;

  bool operator==(const SEndpoint&) const = default;
};

// Four decimal parts and nothing else; empty for any other text.
std::optional<std::uint32_t> ParseIpv4(const std::string& text);
std::string FormatIpv4(std::uint32_t address);

// Throws std::system_error with the code of an invalid argument for a text that is no address.
SEndpoint ToEndpoint(const std::string& address, std::uint16_t port);

}  // namespace cardsim
