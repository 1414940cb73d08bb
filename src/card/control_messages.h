// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zelk {

// The messages from the library to a card. Every one begins with FF and its type; numbers are little-endian.
//
//   FF 01                                         information request
//   FF 02 trunk+1 register(2) FF                  register read
//   FF 04                                         start
//   FF 05 port(2) FF                              audio port
//   FF 10 trunk+1 length(2) frame FF              D-channel frame, without its FCS
//   FF 12 trunk+1 01 crc4 00 00 00 00             trunk configuration
//
// Trunks are counted from 0 in the arguments and from 1 on the wire. Thread: any.

constexpr size_t kMaxFrameMessage = 306;
constexpr size_t kFrameMessageOverhead = 6;

std::array<uint8_t, 2> InformationRequest();
std::array<uint8_t, 6> RegisterRead(uint32_t trunk, uint16_t registerNumber);
std::array<uint8_t, 2> StartRequest();
std::array<uint8_t, 5> AudioPort(uint16_t port);
// trunk may be -1, which gives the trunk byte 0.
std::array<uint8_t, 9> TrunkConfiguration(uint32_t trunk, uint32_t crc4);
// Returns the message's length, or 0 when the frame is too long for one.
size_t BuildFrameMessage(uint32_t trunk, const uint8_t* frame, size_t length,
                         std::array<uint8_t, kMaxFrameMessage>& message);

}  // namespace zelk
