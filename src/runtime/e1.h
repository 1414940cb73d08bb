// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelk {

// An E1 trunk (ITU-T G.704): 32 timeslots of 8000 bytes a second, one G.711 sample each. Timeslot 0 carries the framing
// and 16 the signalling, which is the trunk's D-channel; the other 30 are B-channels and have a channel each.
// Pure. Thread: any.
constexpr uint32_t kTimeslotsPerTrunk = 32;
constexpr uint32_t kFramingTimeslot = 0;
constexpr uint32_t kSignallingTimeslot = 16;
constexpr uint32_t kChannelsPerTrunk = 30;
constexpr uint32_t kSampleRate = 8000;  // Hz
static_assert(kChannelsPerTrunk == kTimeslotsPerTrunk - 2);

// A card has at most 8 trunks, and one port number: TCP for the control connection, UDP for discovery and for audio.
constexpr uint32_t kMaxTrunks = 8;
constexpr uint16_t kCardPort = 5854;

// Audio goes between card and application in blocks of 20 ms of one timeslot.
constexpr uint32_t kBlockMs = 20;
constexpr uint32_t kBlockBytes = 160;
static_assert(kBlockBytes == kSampleRate * kBlockMs / 1000);

// A timeslot's place in a sample frame of its card: trunk by trunk, timeslots 0 to 31 in each.
constexpr size_t kMaxPositions = size_t{kMaxTrunks} * kTimeslotsPerTrunk;

constexpr size_t PositionOf(uint32_t trunk, uint32_t timeslot) {
  return size_t{trunk} * kTimeslotsPerTrunk + timeslot;
}
constexpr uint32_t TrunkOf(size_t position) {
  return static_cast<uint32_t>(position / kTimeslotsPerTrunk);
}
constexpr uint32_t TimeslotOf(size_t position) {
  return static_cast<uint32_t>(position % kTimeslotsPerTrunk);
}

// A timeslot's place among the voice channels of its trunk: 0 to 14 for timeslots 1 to 15, 15 to 29 for 17 to 31.
// Both directions go on in the same way beyond the trunk's own numbers. Of a B-channel only.
constexpr bool IsBchannel(uint32_t timeslot) {
  return timeslot != kFramingTimeslot && timeslot != kSignallingTimeslot;
}
constexpr size_t VoiceIndexOf(uint32_t timeslot) {
  return timeslot < kSignallingTimeslot ? timeslot - 1 : timeslot - 2;
}
constexpr size_t BchannelOf(size_t voiceIndex) {
  return voiceIndex + 1 < kSignallingTimeslot ? voiceIndex + 1 : voiceIndex + 2;
}

}  // namespace zelk
