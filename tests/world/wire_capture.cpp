// SPDX-License-Identifier: GPL-2.0-only
#include "world/wire_capture.h"

#include <algorithm>
#include <stdexcept>

namespace world {
namespace {

using zelk::SIpv4Endpoint;
using zelk::sim::SWireMessage;

constexpr uint8_t kUdp = 17;
constexpr uint8_t kTcp = 6;
constexpr uint8_t kFin = 0x01;
constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kReset = 0x04;
constexpr uint8_t kPush = 0x08;
constexpr uint8_t kAck = 0x10;
constexpr uint32_t kFirstSequence = 1000;
constexpr size_t kSegmentBytes = 1460;

// The blocks of pcapng.
constexpr uint32_t kSection = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kPacket = 6;
constexpr uint32_t kEthernet = 1;

void PutBig(std::vector<uint8_t>& out, uint32_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) {
    out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
}

void PutLittle(std::vector<uint8_t>& out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) {
    out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
}

void PutAddress(std::vector<uint8_t>& out, zelk::SIpv4Address address) {
  PutLittle(out, address.networkOrder, 4);  // its first byte is the lowest
}

bool IsSound(std::span<const uint8_t> datagram) {
  return datagram.size() >= 2 && datagram[0] == 0xFF && datagram[1] == 0x55;
}

uint8_t FlagsOf(SWireMessage::EKind kind) {
  switch (kind) {
    case SWireMessage::EKind::kAsk:
      return kSyn;
    case SWireMessage::EKind::kAccept:
      return kSyn | kAck;
    case SWireMessage::EKind::kEnd:
      return kFin | kAck;
    case SWireMessage::EKind::kRefuse:
    case SWireMessage::EKind::kReset:
      return kReset | kAck;
    default:
      return kPush | kAck;
  }
}

}  // namespace

CWireCapture::CWireCapture(zelk::sim::CWorld& ownWorld, const SWireFile& wire)
    : world(ownWorld), hasSound(wire.hasSound), file(wire.path, std::ios::binary) {
  if (!file) {
    throw std::runtime_error(wire.path + " cannot be written");
  }
  Bytes section;
  PutLittle(section, 0x1A2B3C4D, 4);
  PutLittle(section, 1, 4);  // version 1.0
  PutLittle(section, UINT32_MAX, 4);
  PutLittle(section, UINT32_MAX, 4);  // of a length that is not told
  WriteBlock(kSection, section);
  Bytes interface;
  PutLittle(interface, kEthernet, 4);
  PutLittle(interface, 0, 4);
  WriteBlock(kInterface, interface);
  world.Network().SetTap([this](const SWireMessage& message) { Take(message); });
}

CWireCapture::~CWireCapture() {
  world.Network().SetTap(nullptr);
}

void CWireCapture::WriteBlock(uint32_t type, const Bytes& body) {
  Bytes block;
  const size_t padded = (body.size() + 3) / 4 * 4;
  const auto length = static_cast<uint32_t>(padded + 12);
  PutLittle(block, type, 4);
  PutLittle(block, length, 4);
  block.insert(block.end(), body.begin(), body.end());
  block.resize(8 + padded);
  PutLittle(block, length, 4);
  file.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size()));
}

void CWireCapture::Take(const SWireMessage& message) {
  if (message.kind != SWireMessage::EKind::kDatagram) {
    TakeSegments(message);
  } else if (hasSound || !IsSound(message.data)) {
    TakeDatagram(message);
  }
}

void CWireCapture::TakeDatagram(const SWireMessage& message) {
  Bytes udp;
  PutBig(udp, message.from.port, 2);
  PutBig(udp, message.to.port, 2);
  PutBig(udp, static_cast<uint32_t>(8 + message.data.size()), 2);
  PutBig(udp, 0, 2);
  udp.insert(udp.end(), message.data.begin(), message.data.end());
  AddPacket(message, kUdp, udp);
}

void CWireCapture::TakeSegments(const SWireMessage& message) {
  std::span<const uint8_t> rest = message.data;
  do {
    const std::span<const uint8_t> part = rest.first(std::min(rest.size(), kSegmentBytes));
    AddSegment(message, FlagsOf(message.kind), part);
    rest = rest.subspan(part.size());
  } while (!rest.empty());
}

void CWireCapture::AddSegment(const SWireMessage& message, uint8_t flags, std::span<const uint8_t> data) {
  const Place from{message.from.address.networkOrder, message.from.port};
  const Place to{message.to.address.networkOrder, message.to.port};
  if ((flags & kSyn) != 0) {
    sequences[{from, to}] = kFirstSequence;
  }
  uint32_t& sequence = sequences.try_emplace({from, to}, kFirstSequence).first->second;
  const auto other = sequences.find({to, from});
  Bytes tcp;
  PutBig(tcp, message.from.port, 2);
  PutBig(tcp, message.to.port, 2);
  PutBig(tcp, sequence, 4);
  PutBig(tcp, other == sequences.end() || (flags & kAck) == 0 ? 0 : other->second, 4);
  PutBig(tcp, 0x5000U | flags, 2);  // a header of 20 bytes
  PutBig(tcp, UINT16_MAX, 2);
  PutBig(tcp, 0, 4);
  tcp.insert(tcp.end(), data.begin(), data.end());
  sequence += static_cast<uint32_t>(data.size()) + ((flags & (kSyn | kFin)) != 0 ? 1 : 0);
  AddPacket(message, kTcp, tcp);
}

void CWireCapture::AddPacket(const SWireMessage& message, uint8_t protocol, const Bytes& payload) {
  Bytes frame;
  for (const SIpv4Endpoint& end : {message.to, message.from}) {
    PutBig(frame, 0x0200, 2);
    PutAddress(frame, end.address);
  }
  PutBig(frame, 0x0800, 2);
  PutBig(frame, 0x4500, 2);
  PutBig(frame, static_cast<uint32_t>(20 + payload.size()), 2);
  PutBig(frame, 0x4000, 4);  // not to be fragmented
  PutBig(frame, 0x4000U | protocol, 2);
  PutBig(frame, 0, 2);
  PutAddress(frame, message.from.address);
  PutAddress(frame, message.to.address);
  frame.insert(frame.end(), payload.begin(), payload.end());

  const int64_t us = world.Options().startUnixMs * zelk::sim::kUsPerMs + world.NowUs();
  Bytes packet;
  PutLittle(packet, 0, 4);
  PutLittle(packet, static_cast<uint32_t>(us >> 32), 4);
  PutLittle(packet, static_cast<uint32_t>(us), 4);
  PutLittle(packet, static_cast<uint32_t>(frame.size()), 4);
  PutLittle(packet, static_cast<uint32_t>(frame.size()), 4);
  packet.insert(packet.end(), frame.begin(), frame.end());
  WriteBlock(kPacket, packet);
}

}  // namespace world
