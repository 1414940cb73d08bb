// SPDX-License-Identifier: GPL-2.0-only
#include "phone/port_check.h"

#include "phone/phone_error.h"

namespace phone {

namespace {

constexpr uint16_t kCardPort = 5854;

// Where a broadcast address cannot be bound, simulated cards hear probes on the wildcard address.
bool IsSimulatedCard(const tool::SPortHolder& holder) {
  return holder.name == "zelk-cardsim" || holder.name == "zelk-cardsim.exe";
}

std::string NameOf(const tool::SPortHolder& holder) {
  if (holder.pid == 0) {
    return "a process that the system does not name";
  }
  return "process " + std::to_string(holder.pid) + (holder.name.empty() ? "" : " (" + holder.name + ")");
}

}  // namespace

std::string RefusalText(const std::vector<tool::SPortHolder>& holders, uint32_t ownPid) {
  std::string names;
  for (const tool::SPortHolder& holder : holders) {
    if (holder.pid != ownPid && !IsSimulatedCard(holder)) {
      names += (names.empty() ? "" : ", ") + NameOf(holder);
    }
  }
  return names.empty() ? names
                       : "UDP port " + std::to_string(kCardPort) + " is held by " + names +
                             ": another program uses the cards, and its calls would end (--force starts all the same)";
}

void RequireCardsFree() {
  const std::string refusal = RefusalText(tool::UdpWildcardHolders(kCardPort), tool::OwnProcessId());
  if (!refusal.empty()) {
    throw CPhoneError(EExit::kCardsInUse, refusal);
  }
}

}  // namespace phone
