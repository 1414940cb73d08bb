// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/wire_facts.h"

#include <fmt/format.h>

#include "trace/core/text.h"

namespace doctor {

std::string PlaceText(const SMark& mark) {
  const std::string unit = mark.file.empty() ? "packet" : mark.file + ", line";
  return fmt::format("{} {} ({})", unit, mark.number, trace::IsoTime(mark.time));
}

void STally::Add(const SMark& mark) {
  first = count == 0 ? mark : first;
  last = mark;
  ++count;
}

std::vector<std::string> PlacesOf(const STally& tally, const std::string& what) {
  std::vector<std::string> places;
  if (tally.count > 0) {
    places.push_back(PlaceText(tally.first) + ": " + what);
  }
  if (tally.count > 1) {
    places.push_back(fmt::format("{}: the last of {}", PlaceText(tally.last), tally.count));
  }
  return places;
}

std::string CardName(const SCardFacts& card) {
  return card.serial != 0 ? std::to_string(card.serial) : trace::AddressText(card.address);
}

std::string TrunkName(const SCardFacts& card, std::size_t trunk) {
  return CardName(card) + "-" + std::to_string(trunk + 1);
}

}  // namespace doctor
