// SPDX-License-Identifier: GPL-2.0-only
#include "stream/packet_sender.h"

#include <cstring>
#include <limits>
#include <new>

namespace zelk {
namespace {

constexpr int32_t kSendWaitMs = 10;

}  // namespace

bool CPacketSender::Create(CCardRings& rings) {
  static_assert(kSentPackets == size_t{std::numeric_limits<uint8_t>::max()} + 1, "places are numbered by a byte");
  trunks = static_cast<uint32_t>(rings.PositionCount() / kTimeslotsPerTrunk);
  // Not cleared: places that are never used take no memory then. Each packet is written before it is read.
  room.reset(new (std::nothrow) SPacket[kSentPackets + 1]);
  if (room == nullptr)
    return false;
  room[kSentPackets].length = kAudioHeaderBytes;
  last = &room[kSentPackets];
  for (unusedCount = 0; unusedCount < kSentPackets; ++unusedCount)
    unused[unusedCount] = static_cast<uint8_t>(unusedCount);
  return multiplexer.Create(rings);
}

// A packet that finds no room is not kept, but it is the last one sent all the same.
void CPacketSender::Send(size_t length) {
  const size_t frames = FrameCount(length, trunks);
  const bool hasRoom = unusedCount > 0;
  const size_t place = hasRoom ? unused[unusedCount - 1] : kSentPackets;
  SPacket& packet = room[place];
  if (stop.IsSet() || !multiplexer.CopyFrames(packet.bytes.data() + kAudioHeaderBytes, frames))
    return;
  WriteAudioHeader(packet.bytes.data(), controls.sendSequence.fetch_add(1, std::memory_order_relaxed));
  packet.length = length;
  const size_t used = kAudioHeaderBytes + frames * FrameBytes(trunks);
  std::memset(packet.bytes.data() + used, 0, length - used);  // after the last whole frame: not those of another packet
  Transmit(packet);
  last = &packet;
  if (hasRoom) {
    --unusedCount;
    // As many are kept before it as places are in use, less its own.
    kept[static_cast<uint8_t>(oldestKept + (kSentPackets - unusedCount) - 1)] = static_cast<uint8_t>(place);
  }
}

// The result is a byte count or -1, never an error number, so the retry does not happen in practice. Kept as it is: a
// packet that the system does not accept is lost, and the next one is due within a few milliseconds.
void CPacketSender::Transmit(const SPacket& packet) {
  if (sink.SendPacket(packet.bytes.data(), packet.length) == kSocketWouldBlock) {
    sink.WaitToSend(kSendWaitMs);
    sink.SendPacket(packet.bytes.data(), packet.length);
  }
}

SSentPacket CPacketSender::TakeSent() {
  const bool isKept = unusedCount < kSentPackets;
  const SPacket& packet = isKept ? room[kept[oldestKept]] : *last;
  return {packet.bytes.data() + kAudioHeaderBytes, packet.length - kAudioHeaderBytes, isKept};
}

void CPacketSender::ReturnSent(const SSentPacket& sent) {
  if (sent.isKept)
    unused[unusedCount++] = kept[oldestKept++];
}

}  // namespace zelk
