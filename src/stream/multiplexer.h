// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "runtime/stop_flag.h"
#include "stream/audio_controls.h"
#include "stream/card_rings.h"

namespace zelk {

// Holds the 160 sample frames that go out next, made of every position's block at each block's start; packets are
// copied from it.
// All positions share one read position. A block goes back to the free ring only when the next one is popped, and a
// position with none ready sends the idle byte for 20 ms, as all do for the first 160 frames. A block that was filled
// before a flush of its position goes out as idle bytes, its mark still honoured.
// Thread: receive, but Create (false when there is no memory) the opener. Tells the hook of marks there.
// Nothing blocks or allocates after Create.
class CMultiplexer {
 public:
  CMultiplexer(SAudioControls& cardControls, const CStopFlag& generationStop)
      : controls(cardControls), stop(generationStop) {}

  bool Create(CCardRings& cardRings);
  // False when the stop flag was set while the hook was inside its call: the frames are not whole then.
  bool CopyFrames(uint8_t* target, size_t frames);

 private:
  struct SColumn {
    bool hasBlock = false;          // false: the idle block
    int16_t uniform = kNotUniform;  // what all its bytes in the rows are known to be
    uint32_t flushCount = 0;        // of the position, which its bytes in the rows obey
  };

  bool TurnBlocks();
  bool TakeGroup(size_t first, const uint8_t** sources);
  const uint8_t* TakeBlock(size_t position, bool& changes);
  bool ReportMark(size_t position);
  void SilenceFlushed();

  SAudioControls& controls;
  const CStopFlag& stop;
  CCardRings* rings = nullptr;
  std::unique_ptr<uint8_t[]> rows;  // 160 frames
  std::array<SColumn, kMaxPositions> columns{};
  size_t next = 0;
  uint32_t flushesSeen = 0;
};

}  // namespace zelk
