// SPDX-License-Identifier: GPL-2.0-only
#include "common/fcs.h"

namespace tool {

std::uint16_t FrameCheckSequence(ByteView frame) {
  unsigned crc = 0xFFFF;
  for (const std::uint8_t byte : frame) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1) != 0 ? (crc >> 1) ^ 0x8408U : crc >> 1;
    }
  }
  return static_cast<std::uint16_t>(crc ^ 0xFFFF);
}

}  // namespace tool
