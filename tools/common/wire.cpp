// SPDX-License-Identifier: GPL-2.0-only
#include "common/wire.h"

#include <algorithm>
#include <string_view>

#include "common/fcs.h"

namespace tool {
namespace {

constexpr std::uint8_t kLead = 0xFF;

void Put16(Bytes& out, std::uint32_t value) {
  out.push_back(static_cast<std::uint8_t>(value & 0xFF));
  out.push_back(static_cast<std::uint8_t>((value >> 8) & 0xFF));
}

void Put32(Bytes& out, std::uint32_t value) {
  Put16(out, value & 0xFFFF);
  Put16(out, value >> 16);
}

void PutText(Bytes& out, std::string_view text) {
  out.insert(out.end(), text.begin(), text.end());
}

}  // namespace

Bytes BuildInformation(const SCardIdentity& identity) {
  Bytes out{kLead, 0x01};
  PutText(out, "ZELK ");
  out.push_back(identity.firmwareVersion);
  out.push_back(identity.trunks);
  Put32(out, identity.featureFlags);
  Put32(out, identity.serial);
  out.insert(out.end(), identity.firmwareDate.begin(), identity.firmwareDate.end());
  out.insert(out.end(), identity.burnDate.begin(), identity.burnDate.end());
  return out;
}

Bytes BuildTrunkStatus(ByteView status) {
  Bytes out{kLead, 0x07};
  out.insert(out.end(), status.begin(), status.end());
  return out;
}

Bytes BuildRegisterValue(std::uint8_t trunk, std::uint16_t number, std::uint8_t value) {
  Bytes out{kLead, 0x02, trunk};
  Put16(out, number);
  out.push_back(value);
  return out;
}

Bytes BuildHdlcError(std::uint8_t trunk, std::uint8_t code) {
  return {kLead, 0x11, trunk, code};
}

Bytes BuildFrameMessage(int trunk, ByteView frame) {
  Bytes out{kLead, 0x10, static_cast<std::uint8_t>(trunk + 1)};
  Put16(out, static_cast<std::uint32_t>(frame.size() + 2));
  out.insert(out.end(), frame.begin(), frame.end());
  Put16(out, FrameCheckSequence(frame));
  return out;
}

bool IsProbe(ByteView datagram) {
  constexpr std::string_view kProbe = "ZELK D";
  return datagram.size() >= kProbe.size() && std::equal(kProbe.begin(), kProbe.end(), datagram.begin());
}

Bytes BuildDiscoveryReply() {
  Bytes out;
  PutText(out, "ZELK R");
  out.push_back(1);
  out.resize(15, 0);
  return out;
}

Bytes BuildAnnouncement(std::uint32_t serial) {
  Bytes out;
  PutText(out, "ZELK B");
  out.push_back(1);
  out.resize(18, 0);
  Put32(out, serial);
  return out;
}

int LargestFrameCount(int trunks) {
  if (trunks < 1 || trunks > kMaxTrunks) {
    return 0;
  }
  return static_cast<int>(kMaxAudioPacket - kAudioHeaderBytes) / (trunks * kTimeslots);
}

std::size_t AudioPacketBytes(int trunks, int frames) {
  return kAudioHeaderBytes + static_cast<std::size_t>(trunks) * kTimeslots * static_cast<std::size_t>(frames);
}

bool IsAudioPacketSize(std::size_t bytes) {
  return bytes >= kMinAudioPacket && bytes <= kMaxAudioPacket;
}

void WriteAudioHeader(std::uint8_t* packet, std::uint32_t sequence, std::uint8_t hint) {
  packet[0] = 0xFF;
  packet[1] = 0x55;
  for (int i = 0; i < 4; ++i) {
    packet[2 + i] = static_cast<std::uint8_t>(sequence >> (8 * i));
  }
  packet[6] = hint;
  packet[7] = 0;
}

std::uint16_t ReadLe16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

std::uint32_t ReadLe32(const std::uint8_t* bytes) {
  return ReadLe16(bytes) | (static_cast<std::uint32_t>(ReadLe16(bytes + 2)) << 16);
}

}  // namespace tool
