// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/e1.h"

namespace zelk {

// The audio packet, the same in both directions, little-endian:
//
//   offset  0     1     2 .. 5     6       7         8 ...
//           0xFF  0x55  sequence   backlog reserved  sample frames: F x (trunks x 32) A-law bytes,
//                                  hint    (0)       trunk by trunk, timeslot 0..31 in each
//
// F is what fits into the length; bytes after the last whole frame mean nothing.
// Thread: any; no state.
constexpr size_t kAudioHeaderBytes = 8;
constexpr size_t kMinAudioPacketBytes = 584;
constexpr size_t kMaxAudioPacketBytes = 1448;
constexpr size_t kAudioBufferBytes = 1522;  // a whole Ethernet frame, so that longer packets are told from the longest
static_assert(kMaxAudioPacketBytes < kAudioBufferBytes);

struct SAudioHeader {
  uint32_t sequence = 0;
  uint8_t backlogHint = 0;
};

// False unless the length and the two magic bytes are those of an audio packet.
bool ReadAudioHeader(const uint8_t* packet, size_t length, SAudioHeader& header);
// Writes the 8 header bytes; hint and reserved are 0.
void WriteAudioHeader(uint8_t* packet, uint32_t sequence);

constexpr size_t FrameBytes(uint32_t trunks) {
  return size_t{trunks} * kTimeslotsPerTrunk;
}
// Whole sample frames in a packet of this length; 0 for no trunks or a length below the header's.
size_t FrameCount(size_t packetLength, uint32_t trunks);

}  // namespace zelk
