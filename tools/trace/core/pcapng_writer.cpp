// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/pcapng_writer.h"

#include <string_view>

namespace trace {
namespace {

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterface = 1;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint32_t kByteOrder = 0x1A2B3C4D;
constexpr std::uint32_t kLinuxLapd = 177;
constexpr std::uint32_t kMostBytes = 512;

// Options
constexpr std::uint32_t kEnd = 0;
constexpr std::uint32_t kPacketFlags = 2;
constexpr std::uint32_t kInterfaceName = 2;
constexpr std::uint32_t kDescription = 3;
constexpr std::uint32_t kApplication = 4;
constexpr std::uint32_t kResolution = 9;
constexpr std::uint8_t kNanoseconds = 9;

// Flags of a packet
constexpr std::uint32_t kInbound = 1;
constexpr std::uint32_t kOutbound = 2;
constexpr std::uint32_t kCrcError = 1U << 24;

// Of the pseudo-header
constexpr std::uint32_t kReceived = 0;
constexpr std::uint32_t kSent = 4;
constexpr std::uint32_t kHardwareLapd = 0x20FD;
constexpr std::uint32_t kProtocolLapd = 0x0030;

void Put(Bytes& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

void PutBig(Bytes& bytes, std::uint32_t value, int count) {
  for (int i = count - 1; i >= 0; --i) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

void Pad(Bytes& bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
}

void PutOption(Bytes& bytes, std::uint32_t code, std::string_view text) {
  Put(bytes, code, 2);
  Put(bytes, static_cast<std::uint32_t>(text.size()), 2);
  bytes.insert(bytes.end(), text.begin(), text.end());
  Pad(bytes);
}

Bytes PseudoHeader(const SExported& exported) {
  Bytes header;
  PutBig(header, exported.frame.direction == EDirection::kFromLibrary ? kSent : kReceived, 2);
  PutBig(header, kHardwareLapd, 2);
  PutBig(header, 6, 2);
  header.push_back(exported.isLibraryNetwork ? 1 : 0);
  header.push_back(static_cast<std::uint8_t>(exported.trunk + 1));
  PutBig(header, exported.serial, 4);
  PutBig(header, 0, 2);
  PutBig(header, kProtocolLapd, 2);
  return header;
}

}  // namespace

CPcapngWriter::CPcapngWriter(std::ostream& stream) : out(stream) {
  Bytes body;
  Put(body, kByteOrder, 4);
  Put(body, 1, 2);
  Put(body, 0, 2);
  Put(body, 0xFFFFFFFF, 4);  // the section's length is not told
  Put(body, 0xFFFFFFFF, 4);
  PutOption(body, kApplication, "zelk-trace");
  Put(body, kEnd, 4);
  WriteBlock(kSectionHeader, body);
}

void CPcapngWriter::WriteBlock(std::uint32_t type, const Bytes& body) {
  const std::uint32_t size = static_cast<std::uint32_t>(body.size()) + 12;
  Bytes block;
  Put(block, type, 4);
  Put(block, size, 4);
  block.insert(block.end(), body.begin(), body.end());
  Put(block, size, 4);
  out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size()));
}

std::uint32_t CPcapngWriter::InterfaceOf(const SExported& exported) {
  const std::string trunk = std::to_string(exported.trunk + 1);
  const auto [place, isNew] =
      interfaces.try_emplace(exported.card + "-" + trunk, static_cast<std::uint32_t>(interfaces.size()));
  if (isNew) {
    Bytes body;
    Put(body, kLinuxLapd, 2);
    Put(body, 0, 2);
    Put(body, kMostBytes, 4);
    PutOption(body, kInterfaceName, place->first);
    PutOption(body, kDescription, "D-channel of trunk " + trunk + " of card " + exported.card);
    PutOption(body, kResolution, std::string_view(reinterpret_cast<const char*>(&kNanoseconds), 1));
    Put(body, kEnd, 4);
    WriteBlock(kInterface, body);
  }
  return place->second;
}

void CPcapngWriter::Write(const SExported& exported) {
  Bytes body;
  Put(body, InterfaceOf(exported), 4);
  const auto time = static_cast<std::uint64_t>(exported.frame.time);
  Put(body, static_cast<std::uint32_t>(time >> 32), 4);
  Put(body, static_cast<std::uint32_t>(time), 4);
  Bytes packet = PseudoHeader(exported);
  packet.insert(packet.end(), exported.frame.body.begin(), exported.frame.body.end());
  Put(body, static_cast<std::uint32_t>(packet.size()), 4);
  Put(body, static_cast<std::uint32_t>(packet.size()), 4);
  body.insert(body.end(), packet.begin(), packet.end());
  Pad(body);
  Put(body, kPacketFlags, 2);
  Put(body, 4, 2);
  const std::uint32_t way = exported.frame.direction == EDirection::kFromLibrary ? kOutbound : kInbound;
  Put(body, way | (exported.frame.isFcsGood ? 0 : kCrcError), 4);
  Put(body, kEnd, 4);
  WriteBlock(kEnhancedPacket, body);
}

}  // namespace trace
