// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <vector>

#include "cardsim/base/bytes.h"

namespace cardsim {

// A line's echo: what the far end hears comes back after this time, weaker by this much.
struct SEchoPath {
  int delayFrames = 64;  // 8 a millisecond, up to CAudioEcho::kLongest
  double lossDb = 6;
};

// Job: the echo of one timeslot. What was heard at frame n is added to what is sent at frame n + delay. An echo that is
// due before the reply was heard cannot be sent and is counted; with a delay of at least a packet and
// CAudioPort::SetWaitForReplies there is none.
// Thread: under the owner's lock. Nothing blocks or fails; a delay out of range is taken as the nearest in range.
class CAudioEcho {
 public:
  static constexpr int kLongest = 4000;

  explicit CAudioEcho(const SEchoPath& path);

  void Hear(ByteView codes, std::uint64_t firstFrame);
  // Adds the echo to codes that are sent from this frame on.
  void AddTo(std::uint8_t* codes, std::size_t count, std::uint64_t firstFrame);
  std::uint64_t TooLate() const { return tooLate; }

 private:
  static constexpr std::uint64_t kNone = ~std::uint64_t{0};
  struct SSample {
    std::uint64_t frame = kNone;
    double value = 0;
  };

  std::uint64_t delay;
  double gain;
  std::vector<SSample> samples;  // by frame number, wrapping
  std::uint64_t sentUpTo = 0;
  std::uint64_t tooLate = 0;
};

}  // namespace cardsim
