// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>
#include <system_error>

#include "native_sockets.h"
#include "support/system_address.h"

namespace load {

constexpr uint16_t kCardPort = 5854;
constexpr size_t kHeaderBytes = 8;  // of an audio packet
constexpr size_t kLongestPacket = 1448;

[[noreturn]] inline void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// A bound socket of this kind. Throws std::system_error.
inline int OpenSocket(int kind, const std::string& address, uint16_t port) {
  const int descriptor = socket(AF_INET, kind, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in local = zelk::SystemAddress(address, port);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    Fail("bind to " + address);
  }
  return descriptor;
}

inline void WriteHeader(uint8_t* packet, uint32_t sequence) {
  const uint8_t header[kHeaderBytes] = {0xFF,
                                        0x55,
                                        static_cast<uint8_t>(sequence),
                                        static_cast<uint8_t>(sequence >> 8U),
                                        static_cast<uint8_t>(sequence >> 16U),
                                        static_cast<uint8_t>(sequence >> 24U),
                                        0,
                                        0};
  for (size_t i = 0; i < kHeaderBytes; ++i) {
    packet[i] = header[i];
  }
}

inline uint32_t SequenceOf(const uint8_t* packet) {
  return uint32_t{packet[2]} | uint32_t{packet[3]} << 8U | uint32_t{packet[4]} << 16U | uint32_t{packet[5]} << 24U;
}

inline int64_t NowNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

}  // namespace load
