// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelk {

// Numbers as they stand in packets, messages and files: low byte first, at any address.
// Thread: any; no state. The caller has made sure that the bytes are there.

constexpr uint16_t ReadLittle16(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

constexpr uint32_t ReadLittle32(const uint8_t* bytes) {
  return static_cast<uint32_t>(ReadLittle16(bytes)) | static_cast<uint32_t>(ReadLittle16(bytes + 2)) << 16;
}

constexpr void WriteLittle16(uint8_t* bytes, uint16_t value) {
  bytes[0] = static_cast<uint8_t>(value);
  bytes[1] = static_cast<uint8_t>(value >> 8);
}

constexpr void WriteLittle32(uint8_t* bytes, uint32_t value) {
  WriteLittle16(bytes, static_cast<uint16_t>(value));
  WriteLittle16(bytes + 2, static_cast<uint16_t>(value >> 16));
}

}  // namespace zelk
