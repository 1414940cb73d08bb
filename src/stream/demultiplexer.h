// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "stream/card_rings.h"

namespace zelk {

// Collects received sample frames until 160 stand together, then turns them into the positions' blocks.
// All positions share one fill position. A full block is pushed only when the next frame arrives, and the block for the
// following 20 ms is popped at that moment; a position without one loses those 20 ms. The first 160 frames are lost.
// A block whose bytes are all the same says so in its note, and is written only when they were not so before: what idle
// lines bring is hardly touched.
// Thread: receive, but Create (false when there is no memory) the opener. Nothing blocks or allocates after Create.
class CDemultiplexer {
 public:
  // card: its place on the status page.
  bool Create(CCardRings& cardRings, uint32_t card = 0);
  // Whole frames, position by position in each.
  void Add(const uint8_t* samples, size_t frames);

 private:
  void Foresee(size_t first, size_t end);
  void TurnBlocks();
  void LeaveSteady();
  void CountLost(size_t position) const;

  CCardRings* rings = nullptr;
  uint32_t cardNumber = 0;
  std::unique_ptr<uint8_t[]> rows;                 // 160 frames
  std::array<SPoolBlock, kMaxPositions> blocks{};  // where this 20 ms will go; none: nowhere
  std::array<uint8_t*, kMaxPositions> targets{};   // those of them that must be written
  size_t fill = 0;
};

}  // namespace zelk
