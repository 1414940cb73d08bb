// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_packet.h"

namespace zelk {
namespace {

constexpr uint8_t kMagic0 = 0xFF;
constexpr uint8_t kMagic1 = 0x55;
constexpr size_t kSequenceOffset = 2;
constexpr size_t kHintOffset = 6;
constexpr size_t kReservedOffset = 7;

}  // namespace

bool ReadAudioHeader(const uint8_t* packet, size_t length, SAudioHeader& header) {
  if (length < kMinAudioPacketBytes || length > kMaxAudioPacketBytes)
    return false;
  if (packet[0] != kMagic0 || packet[1] != kMagic1)
    return false;
  header.sequence = 0;
  for (unsigned i = 0; i < 4; ++i)
    header.sequence |= static_cast<uint32_t>(packet[kSequenceOffset + i]) << (8 * i);
  header.backlogHint = packet[kHintOffset];
  return true;
}

void WriteAudioHeader(uint8_t* packet, uint32_t sequence) {
  packet[0] = kMagic0;
  packet[1] = kMagic1;
  for (unsigned i = 0; i < 4; ++i)
    packet[kSequenceOffset + i] = static_cast<uint8_t>(sequence >> (8 * i));
  packet[kHintOffset] = 0;
  packet[kReservedOffset] = 0;
}

size_t FrameCount(size_t packetLength, uint32_t trunks) {
  if (trunks == 0 || packetLength < kAudioHeaderBytes)
    return 0;
  return (packetLength - kAudioHeaderBytes) / FrameBytes(trunks);
}

}  // namespace zelk
