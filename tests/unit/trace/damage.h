// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <vector>

#include "conversation.h"

// What may become of packets on their way into a file.
namespace trace::test {

inline constexpr std::size_t kTcpHeaders = 14 + 20 + 20;  // Ethernet, IPv4, TCP

// Where the packet with this Q.931 message stands.
std::size_t PlaceOf(const Wire& wire, std::uint8_t type, int reference, bool isAnswer);
Wire Without(Wire wire, std::vector<std::size_t> places);
void InOrderOfTime(Wire& wire);

// `count` bytes of a TCP packet from `from` on, as a segment of their own.
Bytes Part(const Bytes& packet, std::size_t from, std::size_t count);
// Two segments of a side, one right behind the other, as one.
Bytes Joined(const Bytes& first, const Bytes& second);

// A pcapng file of Ethernet with times in microseconds.
Bytes PcapngFile(const Wire& wire);

}  // namespace trace::test
