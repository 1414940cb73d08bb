// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace replay {

// Message types and elements of ITU-T Q.931 by which a replay tells what happened.
constexpr std::uint8_t kSetup = 0x05;
constexpr std::uint8_t kConnect = 0x07;
constexpr std::uint8_t kConnectAcknowledge = 0x0F;
constexpr std::uint8_t kDisconnect = 0x45;
constexpr std::uint8_t kRelease = 0x4D;
constexpr std::uint8_t kReleaseComplete = 0x5A;
constexpr std::uint8_t kCalling = 0x6C;
constexpr std::uint8_t kCalled = 0x70;

constexpr bool IsClearing(std::uint8_t type) {
  return type == kDisconnect || type == kRelease || type == kReleaseComplete;
}

// Whether the one is the library's own answer to the other.
constexpr bool IsAnswer(std::uint8_t message, std::uint8_t answer) {
  switch (message) {
    case kSetup:
      return true;
    case kConnect:
      return answer == kConnectAcknowledge;
    case kDisconnect:
      return answer == kRelease || answer == kReleaseComplete;
    case kRelease:
      return answer == kReleaseComplete;
    default:
      return false;
  }
}

}  // namespace replay
