// SPDX-License-Identifier: GPL-2.0-only
#include "damage.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace trace::test {
namespace {

constexpr std::size_t kSequenceAt = 14 + 20 + 4;

// The length in the IPv4 header.
void SetLength(Bytes& packet) {
  const std::size_t total = packet.size() - 14;
  packet[16] = static_cast<std::uint8_t>(total >> 8);
  packet[17] = static_cast<std::uint8_t>(total);
}

}  // namespace

std::size_t PlaceOf(const Wire& wire, std::uint8_t type, int reference, bool isAnswer) {
  const Bytes head = test::Message(reference, isAnswer, type);
  const auto found = std::find_if(wire.begin(), wire.end(), [&](const SFrameOnWire& frame) {
    return std::search(frame.bytes.begin(), frame.bytes.end(), head.begin(), head.end()) != frame.bytes.end();
  });
  EXPECT_NE(found, wire.end());
  return static_cast<std::size_t>(found - wire.begin());
}
Wire Without(Wire wire, std::vector<std::size_t> places) {
  std::sort(places.rbegin(), places.rend());
  for (const std::size_t place : places) {
    wire.erase(wire.begin() + static_cast<std::ptrdiff_t>(place));
  }
  return wire;
}

void InOrderOfTime(Wire& wire) {
  std::stable_sort(wire.begin(), wire.end(),
                   [](const SFrameOnWire& a, const SFrameOnWire& b) { return a.time < b.time; });
}

Bytes Part(const Bytes& packet, std::size_t from, std::size_t count) {
  Bytes part(packet.begin(), packet.begin() + kTcpHeaders);
  for (std::size_t i = 0; i < count; ++i) {
    part.push_back(packet[kTcpHeaders + from + i]);
  }
  std::uint32_t sequence = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    sequence = sequence << 8 | packet[kSequenceAt + i];
  }
  sequence += static_cast<std::uint32_t>(from);
  SetLength(part);
  for (std::size_t i = 0; i < 4; ++i) {
    part[kSequenceAt + i] = static_cast<std::uint8_t>(sequence >> (24 - 8 * i));
  }
  return part;
}

Bytes Joined(const Bytes& first, const Bytes& second) {
  Bytes both = first;
  both.insert(both.end(), second.begin() + kTcpHeaders, second.end());
  SetLength(both);
  return both;
}

Bytes PcapngFile(const Wire& wire) {
  Bytes out;
  const auto put = [&](std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i) {
      out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
  };
  for (const std::uint64_t word : {0x0A0D0D0AU, 28U, 0x1A2B3C4DU, 1U, 0xFFFFFFFFU, 0xFFFFFFFFU, 28U}) {
    put(word, 4);
  }
  for (const std::uint64_t word : {1U, 20U, 1U, 0U, 20U}) {
    put(word, 4);
  }
  for (const SFrameOnWire& frame : wire) {
    const std::size_t padded = (frame.bytes.size() + 3) / 4 * 4;
    const auto time = static_cast<std::uint64_t>(frame.time / 1000);
    for (const std::uint64_t word :
         {std::uint64_t{6}, std::uint64_t{32 + padded}, std::uint64_t{0}, time >> 32, time & 0xFFFFFFFF,
          frame.bytes.size() + std::uint64_t{0}, frame.bytes.size() + std::uint64_t{0}}) {
      put(word, 4);
    }
    out.insert(out.end(), frame.bytes.begin(), frame.bytes.end());
    put(0, static_cast<int>(padded - frame.bytes.size()));
    put(32 + padded, 4);
  }
  return out;
}

}  // namespace trace::test
