// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

#include "trace/core/capture_file.h"

namespace trace {

// An IPv4 address (host order) and a port.
struct SEndpoint {
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  auto operator<=>(const SEndpoint&) const = default;  // NOLINT(modernize-use-nullptr): the check misreads it
};

std::string AddressText(std::uint32_t address);

// A TCP segment or a UDP datagram. The payload is valid as long as the captured packet.
struct SPacket {
  Time time = 0;
  std::uint64_t number = 0;
  bool isTcp = false;
  SEndpoint from;
  SEndpoint to;
  ByteView payload;
  std::size_t leftOut = 0;  // bytes of the payload that the capture cut off
  // TCP alone
  std::uint32_t sequence = 0;
  std::uint32_t acknowledged = 0;
  bool isSyn = false;
  bool isAck = false;
  bool isFin = false;
  bool isReset = false;
};

struct SPacketCounts {
  std::uint64_t packets = 0;
  std::uint64_t fragments = 0;  // of IPv4: passed over
  std::uint64_t malformed = 0;  // headers cut or against themselves: passed over
  std::uint64_t cut = 0;        // packets whose end the capture left out
  std::uint64_t setBack = 0;    // times that the clock went back by more than packets may be out of order
};

// Job: finds TCP and UDP in captured packets of one link type: Ethernet (with VLAN tags), raw IP, BSD loopback, Linux
// cooked 1 and 2. Thread: one. Nothing fails: what is something else is passed over, what is broken is counted.
class CPacketReader {
 public:
  // Throws CTraceError, in the file's name, for a link type that carries no IP in a way known here.
  explicit CPacketReader(const CCaptureFile& file);
  explicit CPacketReader(int linkTypeNumber) : linkType(linkTypeNumber) {}
  static bool IsKnown(int linkType);

  std::optional<SPacket> Read(const SCaptured& captured);
  const SPacketCounts& Counts() const { return counts; }

 private:
  std::optional<ByteView> NetworkPart(ByteView bytes) const;
  std::optional<SPacket> ReadIp(ByteView bytes);
  bool ReadTransport(std::uint8_t protocol, ByteView bytes, SPacket& packet) const;

  int linkType;
  Time last = 0;  // of the packet before
  SPacketCounts counts;
};

}  // namespace trace
