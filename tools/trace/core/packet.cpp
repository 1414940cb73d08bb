// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/packet.h"

#include <algorithm>
#include <array>
#include <utility>

#include "trace/core/trace_error.h"

namespace trace {
namespace {

// Link types as libpcap numbers them.
constexpr int kNull = 0;
constexpr int kEthernet = 1;
constexpr int kRaw = 12;
constexpr int kRawIp = 101;
constexpr int kLoop = 108;
constexpr int kCooked = 113;
constexpr int kIpv4 = 228;
constexpr int kCooked2 = 276;
constexpr std::array kKnown{kNull, kEthernet, kRaw, kRawIp, kLoop, kCooked, kIpv4, kCooked2};

constexpr std::uint32_t kTypeIpv4 = 0x0800;
constexpr std::uint32_t kTypeVlan = 0x8100;
constexpr std::uint32_t kTypeProviderVlan = 0x88A8;
constexpr Time kLeastStep = kSecond;
constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;

std::uint32_t Big(ByteView bytes, std::size_t at, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    value = value << 8 | bytes[at + i];
  }
  return value;
}

// What stands behind a header of `size` bytes whose type of contents stands at `typeAt`, if that is IPv4.
std::optional<ByteView> Behind(ByteView bytes, std::size_t size, std::size_t typeAt) {
  if (bytes.size() < size) {
    return std::nullopt;
  }
  std::uint32_t type = Big(bytes, typeAt, 2);
  while ((type == kTypeVlan || type == kTypeProviderVlan) && bytes.size() >= size + 4) {
    type = Big(bytes, size + 2, 2);
    size += 4;
  }
  return type == kTypeIpv4 ? std::optional(bytes.subspan(size)) : std::nullopt;
}

// The address family of the machine that captured: IPv4 is 2 everywhere, in either order of bytes.
std::optional<ByteView> BehindFamily(ByteView bytes) {
  if (bytes.size() < 4 || (Big(bytes, 0, 4) != 2 && Big(bytes, 0, 4) != 0x02000000)) {
    return std::nullopt;
  }
  return bytes.subspan(4);
}

}  // namespace

std::string AddressText(std::uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(address >> shift & 0xFF) + (shift > 0 ? "." : "");
  }
  return text;
}

bool CPacketReader::IsKnown(int linkType) {
  return std::find(kKnown.begin(), kKnown.end(), linkType) != kKnown.end();
}

CPacketReader::CPacketReader(const CCaptureFile& file) : linkType(file.LinkType()) {
  if (!IsKnown(linkType)) {
    throw CTraceError(EExit::kBadInput, file.Name() + ": its packets are of the link type " + file.LinkTypeName() +
                                            ", not of a network with IP");
  }
}

std::optional<SPacket> CPacketReader::Read(const SCaptured& captured) {
  ++counts.packets;
  counts.setBack += captured.time < std::exchange(last, captured.time) - kLeastStep ? 1 : 0;
  const std::optional<ByteView> network = NetworkPart(captured.bytes);
  if (!network || network->empty() || (*network)[0] >> 4 != 4) {
    return std::nullopt;
  }
  std::optional<SPacket> packet = ReadIp(*network);
  if (packet) {
    packet->time = captured.time;
    packet->number = captured.number;
    counts.cut += packet->leftOut > 0 ? 1 : 0;
  }
  return packet;
}

std::optional<ByteView> CPacketReader::NetworkPart(ByteView bytes) const {
  switch (linkType) {
    case kEthernet:
      return Behind(bytes, 14, 12);
    case kCooked:
      return Behind(bytes, 16, 14);
    case kCooked2:
      return Behind(bytes, 20, 0);
    case kNull:
    case kLoop:
      return BehindFamily(bytes);
    default:
      return bytes;
  }
}

std::optional<SPacket> CPacketReader::ReadIp(ByteView bytes) {
  const std::size_t header = static_cast<std::size_t>(bytes[0] & 0x0F) * 4;
  if (header < 20 || bytes.size() < header) {
    ++counts.malformed;
    return std::nullopt;
  }
  const std::uint8_t protocol = bytes[9];
  if (protocol != kTcp && protocol != kUdp) {
    return std::nullopt;
  }
  if ((Big(bytes, 6, 2) & 0x3FFF) != 0) {  // more of it follows, or this is not its begin
    ++counts.fragments;
    return std::nullopt;
  }
  SPacket packet;
  packet.isTcp = protocol == kTcp;
  packet.from.address = Big(bytes, 12, 4);
  packet.to.address = Big(bytes, 16, 4);
  // A sender that leaves segmentation to its adapter may be captured with a length of 0.
  const std::size_t claimed = Big(bytes, 2, 2);
  const std::size_t total = claimed == 0 ? bytes.size() : claimed;
  packet.leftOut = total > bytes.size() ? total - bytes.size() : 0;
  if (total < header ||
      !ReadTransport(protocol, bytes.subspan(header, std::min(total, bytes.size()) - header), packet)) {
    ++counts.malformed;
    return std::nullopt;
  }
  return packet;
}

bool CPacketReader::ReadTransport(std::uint8_t protocol, ByteView bytes, SPacket& packet) const {
  if (bytes.size() < (protocol == kTcp ? 20U : 8U)) {
    return false;
  }
  packet.from.port = static_cast<std::uint16_t>(Big(bytes, 0, 2));
  packet.to.port = static_cast<std::uint16_t>(Big(bytes, 2, 2));
  if (protocol == kUdp) {
    const std::size_t length = Big(bytes, 4, 2);
    if (length < 8) {
      return false;
    }
    packet.payload = bytes.subspan(8, std::min(length, bytes.size()) - 8);
    return true;
  }
  const std::size_t header = static_cast<std::size_t>(bytes[12] >> 4) * 4;
  if (header < 20 || header > bytes.size()) {
    return false;
  }
  const std::uint8_t flags = bytes[13];
  packet.isFin = (flags & 0x01) != 0;
  packet.isSyn = (flags & 0x02) != 0;
  packet.isReset = (flags & 0x04) != 0;
  packet.isAck = (flags & 0x10) != 0;
  packet.sequence = Big(bytes, 4, 4);
  packet.acknowledged = Big(bytes, 8, 4);
  packet.payload = bytes.subspan(header);
  return true;
}

}  // namespace trace
