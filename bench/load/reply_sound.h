// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "load/numbered.h"

namespace load {

// Follows the numbered blocks that a card's replies carry. The library's blocks begin with its first packet's first
// frame, so that the place of every frame follows from the packet's number. Thread: one.
class CReplySound {
 public:
  CReplySound(uint32_t trunks, uint16_t firstChannel);
  // reply: the library's own number of this packet, in order.
  void Take(uint32_t reply, const uint8_t* samples);
  SBlockCounts Counts() const;

 private:
  struct SLine {
    CBlockFollower follower;
    size_t position;
    std::array<uint8_t, kBlockBytes> block{};
  };

  const size_t positions;
  const size_t frames;
  std::vector<SLine> lines;
};

}  // namespace load
