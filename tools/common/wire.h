// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

#include "common/bytes.h"

// The card's side of every wire format, stated here on its own: nothing is shared with the library, so that a mistake
// there cannot hide. All multi-byte integers are little-endian; `trunk` counts from 0.
//
//   control, card to library:  FF 01 information(22) | FF 02 trunk reg16 value | FF 07 status(trunk count)
//                              FF 10 trunk+1 len16 frame(len, with FCS)       | FF 11 trunk code
//   audio, both ways:          FF 55 seq32 hint 00 then F frames of trunks x 32 bytes
namespace tool {

inline constexpr std::uint16_t kCardPort = 5854;
inline constexpr int kMaxCards = 20;
inline constexpr int kMaxTrunks = 8;
inline constexpr int kTimeslots = 32;
inline constexpr int kSignallingTimeslot = 16;
inline constexpr std::size_t kInformationBytes = 22;
inline constexpr std::size_t kMaxFrameToLibrary = 299;
inline constexpr std::size_t kMaxFrameFromLibrary = 300;

inline constexpr std::size_t kAudioHeaderBytes = 8;
inline constexpr std::size_t kMinAudioPacket = 584;
inline constexpr std::size_t kMaxAudioPacket = 1448;
inline constexpr std::uint8_t kSilence = 0xD5;
inline constexpr int kSampleRate = 8000;

// What a card says of itself in its information message.
struct SCardIdentity {
  std::uint8_t trunks = 1;
  std::uint32_t serial = 1;
  std::uint8_t firmwareVersion = 7;
  std::uint32_t featureFlags = 0;
  std::array<std::uint8_t, 4> firmwareDate{20, 24, 3, 15};
  std::array<std::uint8_t, 3> burnDate{13, 5, 9};
};

Bytes BuildInformation(const SCardIdentity& identity);
Bytes BuildTrunkStatus(ByteView status);
Bytes BuildRegisterValue(std::uint8_t trunk, std::uint16_t number, std::uint8_t value);
Bytes BuildHdlcError(std::uint8_t trunk, std::uint8_t code);
// `frame` comes without its FCS; the two bytes are computed and counted in the message's length.
Bytes BuildFrameMessage(int trunk, ByteView frame);

bool IsProbe(ByteView datagram);
Bytes BuildDiscoveryReply();
Bytes BuildAnnouncement(std::uint32_t serial);

// The largest number of frames whose packet fits; 0 when `trunks` is not 1 to 8.
int LargestFrameCount(int trunks);
std::size_t AudioPacketBytes(int trunks, int frames);
bool IsAudioPacketSize(std::size_t bytes);
void WriteAudioHeader(std::uint8_t* packet, std::uint32_t sequence, std::uint8_t hint);

std::uint16_t ReadLe16(const std::uint8_t* bytes);
std::uint32_t ReadLe32(const std::uint8_t* bytes);

}  // namespace tool
