// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/config.h"

#include <charconv>
#include <stdexcept>

namespace cardsim {
namespace {

std::uint32_t ParseIpv4(const std::string& text) {
  std::uint32_t address = 0;
  const char* at = text.data();
  const char* end = at + text.size();
  for (int part = 0; part < 4; ++part) {
    unsigned value = 256;
    const auto [next, error] = std::from_chars(at, end, value);
    const bool separated = part == 3 ? next == end : next != end && *next == '.';
    if (error != std::errc() || value > 255 || !separated) {
      throw std::invalid_argument("not an IPv4 address: " + text);
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

}  // namespace

std::string AddToAddress(const std::string& first, std::uint32_t offset) {
  return FormatIpv4(ParseIpv4(first) + offset);
}

SSimulatorConfig SSimulatorConfig::WithTrunks(const std::vector<int>& trunksOfCards, const std::string& firstAddress) {
  SSimulatorConfig config;
  for (std::size_t i = 0; i < trunksOfCards.size(); ++i) {
    if (trunksOfCards[i] < 1 || trunksOfCards[i] > kMaxTrunks) {
      throw std::invalid_argument("a card has 1 to 8 trunks, not " + std::to_string(trunksOfCards[i]));
    }
    SCardConfig card;
    card.address = AddToAddress(firstAddress, static_cast<std::uint32_t>(i));
    card.identity.trunks = static_cast<std::uint8_t>(trunksOfCards[i]);
    card.identity.serial = 100001 + static_cast<std::uint32_t>(i);
    config.cards.push_back(card);
  }
  return config;
}

}  // namespace cardsim
