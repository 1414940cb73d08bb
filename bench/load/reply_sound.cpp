// SPDX-License-Identifier: GPL-2.0-only
#include "load/reply_sound.h"

#include "load/sound.h"

namespace load {

CReplySound::CReplySound(uint32_t trunks, uint16_t firstChannel)
    : positions(trunks * kTimeslots), frames(FramesOf(trunks)) {
  for (size_t position = 0; position < positions; ++position) {
    const int channel = ChannelOf(position);
    if (channel >= 0) {
      const auto number = static_cast<uint16_t>(firstChannel + channel);
      lines.push_back({CBlockFollower(EDirection::kFromLibrary, number), position});
    }
  }
}

void CReplySound::Take(uint32_t reply, const uint8_t* samples) {
  const size_t at = uint64_t{reply} * frames % kBlockBytes;
  for (size_t frame = 0; frame < frames; ++frame) {
    for (SLine& line : lines) {
      line.block[at + frame] = samples[frame * positions + line.position];
    }
  }
  if (at + frames == kBlockBytes) {
    for (SLine& line : lines) {
      line.follower.Take(line.block.data());
    }
  }
}

SBlockCounts CReplySound::Counts() const {
  SBlockCounts sum;
  for (const SLine& line : lines) {
    sum.Add(line.follower.counts);
  }
  return sum;
}

}  // namespace load
