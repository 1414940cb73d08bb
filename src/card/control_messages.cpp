// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_messages.h"

#include <algorithm>

namespace zelk {

namespace {

constexpr uint8_t kMarker = 0xFF;

uint8_t WireTrunk(uint32_t trunk) {
  return static_cast<uint8_t>(trunk + 1);
}
uint8_t Low(size_t value) {
  return static_cast<uint8_t>(value);
}
uint8_t High(size_t value) {
  return static_cast<uint8_t>(value >> 8);
}

}  // namespace

std::array<uint8_t, 2> InformationRequest() {
  return {kMarker, 0x01};
}

std::array<uint8_t, 6> RegisterRead(uint32_t trunk, uint16_t registerNumber) {
  return {kMarker, 0x02, WireTrunk(trunk), Low(registerNumber), High(registerNumber), kMarker};
}

std::array<uint8_t, 2> StartRequest() {
  return {kMarker, 0x04};
}

std::array<uint8_t, 5> AudioPort(uint16_t port) {
  return {kMarker, 0x05, Low(port), High(port), kMarker};
}

std::array<uint8_t, 9> TrunkConfiguration(uint32_t trunk, uint32_t crc4) {
  return {kMarker, 0x12, WireTrunk(trunk), 0x01, Low(crc4), 0, 0, 0, 0};
}

size_t BuildFrameMessage(uint32_t trunk, const uint8_t* frame, size_t length,
                         std::array<uint8_t, kMaxFrameMessage>& message) {
  if (length > kMaxFrameMessage - kFrameMessageOverhead) {
    return 0;
  }
  message[0] = kMarker;
  message[1] = 0x10;
  message[2] = WireTrunk(trunk);
  message[3] = Low(length);
  message[4] = High(length);
  std::copy_n(frame, length, message.begin() + 5);
  message[5 + length] = kMarker;
  return length + kFrameMessageOverhead;
}

}  // namespace zelk
