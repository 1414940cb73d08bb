// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace load {

constexpr size_t kTimeslots = 32;

// Frames of a packet for a card of so many trunks: a length that packets may have and that goes into a block evenly.
size_t FramesOf(uint32_t trunks);
// The channel of a position among the card's, -1 for timeslots 0 and 16.
int ChannelOf(size_t position);

// What a card's lines send. Thread: one.
class ILineSound {
 public:
  virtual ~ILineSound() = default;
  // The samples of a packet, counted from 0, row by row.
  virtual void Write(uint64_t packet, uint8_t* samples) = 0;
};

// Nobody speaks.
std::unique_ptr<ILineSound> MakeIdleLines(uint32_t trunks);
// Somebody speaks on every timeslot, nobody in step with another.
class CVoices {
 public:
  explicit CVoices(uint32_t trunks);
  std::unique_ptr<ILineSound> Lines() const;  // which use this object

 private:
  const uint32_t trunks;
  std::vector<uint8_t> rows;
};
// Blocks that say which channel's they are, from this channel on.
std::unique_ptr<ILineSound> MakeNumberedLines(uint32_t trunks, uint16_t firstChannel);

}  // namespace load
