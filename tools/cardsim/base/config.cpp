// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/config.h"

#include <stdexcept>

#include "cardsim/base/endpoint.h"

namespace cardsim {

std::string AddToAddress(const std::string& first, std::uint32_t offset) {
  const std::optional<std::uint32_t> address = ParseIpv4(first);
  if (!address) {
    throw std::invalid_argument("not an IPv4 address: " + first);
  }
  return FormatIpv4(*address + offset);
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
