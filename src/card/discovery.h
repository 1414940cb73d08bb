// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/ipv4_address.h"

namespace zelk {

constexpr uint32_t kMaxCards = 20;

// A card that answered the probe: its address and the address of the adapter that heard it.
struct SDiscoveredCard {
  SIpv4Address cardAddress;
  SIpv4Address localAddress;
};

constexpr size_t kDatagramBytes = 1500;

// The datagrams, all on UDP port 5854; what is not listed is not read:
//
//   probe          "ZELK D"
//   reply          "ZELK R" version 1 ...            at least 15 bytes
//   announcement   "ZELK B" version 1 ... serial     at least 15 bytes; serial little-endian at 18
//
// The serial number of a shorter announcement is read from what the buffer held before.
bool IsDiscoveryReply(const uint8_t* datagram, size_t length);
bool ParseAnnouncement(const std::array<uint8_t, kDatagramBytes>& buffer, size_t length, uint32_t& serialNumber);

// The address that reaches every neighbour of an adapter.
SIpv4Address BroadcastAddress(SIpv4Address address, SIpv4Address mask);

// Adds a card that answered, unless it is known already. False when it is new and there is no room for it.
bool AddDiscoveredCard(std::vector<SDiscoveredCard>& cards, const SDiscoveredCard& found);

// Probes every adapter. Returns the number of cards found (at most kMaxCards), or -1 / -2 when the adapters could not
// be sized / read. Blocks about 150 ms an adapter. Thread: the initialising thread.
int32_t DiscoverCards(std::vector<SDiscoveredCard>& cards);

}  // namespace zelk
