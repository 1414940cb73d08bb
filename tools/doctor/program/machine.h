// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor/core/place_facts.h"

// What only the system tells; a source for each system.
namespace doctor {

// IPv4 addresses of adapters that are up, in the system's order; none when it does not tell.
std::optional<std::vector<SAdapterAddress>> AdapterAddresses();
// Whether this user may write the file, or make files in the folder. Nothing is written.
bool MayWrite(const std::string& path);
// The most that a socket's receive buffer may be; none where there is no such limit.
std::optional<std::uint64_t> ReceiveBufferMost();

// Asks the cards in an adapter's network as a library does, and nothing more of them. Addresses of those that answer;
// `fault` says why it could not be asked.
struct SProbed {
  std::vector<std::uint32_t> cards;
  std::string fault;
};
SProbed ProbeCards(const SAdapterAddress& adapter);

}  // namespace doctor
