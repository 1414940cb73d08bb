// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace phone {

// Takes the received A-law of every channel, a block each 20 ms. Must not block. Thread: the library's pacer.
class IBlockSink {
 public:
  virtual ~IBlockSink() = default;
  virtual void Append(uint32_t channel, const uint8_t* data, uint32_t length) = 0;
};

}  // namespace phone
