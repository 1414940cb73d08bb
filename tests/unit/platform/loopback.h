#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "platform/socket.h"

// What the tests of sockets share.
namespace zelk {

constexpr int32_t kGenerousMs = 10'000;

inline uint32_t Address(const char* text) {
  uint32_t address = 0;
  EXPECT_TRUE(ParseIpv4(text, address)) << text;
  return address;
}

inline const uint32_t kLoopback = Address("127.0.0.1");

}  // namespace zelk
