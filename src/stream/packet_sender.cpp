// SPDX-License-Identifier: GPL-2.0-only
#include "stream/packet_sender.h"

#include <cstring>

namespace zelk {
namespace {

constexpr uint32_t kSentPackets = 256;
constexpr int32_t kSendWaitMs = 10;

}  // namespace

bool CPacketSender::Create(CCardRings& rings) {
  trunks = static_cast<uint32_t>(rings.PositionCount() / kTimeslotsPerTrunk);
  bufferLength = 0;
  return multiplexer.Create(rings) && sentPackets.Create(kSentPackets, kAudioBufferBytes);
}

void CPacketSender::Send(size_t length) {
  const size_t frames = FrameCount(length, trunks);
  if (stop.IsSet() || !multiplexer.CopyFrames(buffer.data() + kAudioHeaderBytes, frames))
    return;
  WriteAudioHeader(buffer.data(), controls.sendSequence.fetch_add(1, std::memory_order_relaxed));
  bufferLength = length;
  const size_t used = kAudioHeaderBytes + frames * FrameBytes(trunks);
  std::memset(buffer.data() + used, 0, length - used);  // after the last whole frame: not those of the packet before
  Transmit();
  Keep();
}

// The result is a byte count or -1, never an error number, so the retry does not happen in practice. Kept as it is: a
// packet that the system does not accept is lost, and the next one is due within a few milliseconds.
void CPacketSender::Transmit() {
  if (sink.SendPacket(buffer.data(), bufferLength) == kSocketWouldBlock) {
    sink.WaitToSend(kSendWaitMs);
    sink.SendPacket(buffer.data(), bufferLength);
  }
}

void CPacketSender::Keep() {
  uint8_t* block = sentPackets.PopFree();
  if (block == nullptr)
    return;
  std::memcpy(block, buffer.data(), bufferLength);
  sentPackets.PushReady(block, false, static_cast<uint32_t>(bufferLength));
}

SSentPacket CPacketSender::TakeSent() {
  const SReadyBlock sent = sentPackets.PopReady();
  const uint8_t* packet = sent.data != nullptr ? sent.data : buffer.data();
  const size_t length = sent.data != nullptr ? sent.tag : bufferLength;
  return {sent.data, packet + kAudioHeaderBytes, length > kAudioHeaderBytes ? length - kAudioHeaderBytes : 0};
}

void CPacketSender::ReturnSent(const SSentPacket& sent) {
  if (sent.block != nullptr)
    sentPackets.PushFree(sent.block);
}

}  // namespace zelk
