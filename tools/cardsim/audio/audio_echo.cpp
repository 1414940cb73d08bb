// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_echo.h"

#include <algorithm>
#include <cmath>

#include "common/g711.h"

namespace cardsim {

CAudioEcho::CAudioEcho(const SEchoPath& path)
    : delay(static_cast<std::uint64_t>(std::clamp(path.delayFrames, 0, kLongest))),
      gain(std::pow(10.0, -path.lossDb / 20.0)),
      samples(static_cast<std::size_t>(kLongest) * 4) {}

void CAudioEcho::Hear(ByteView codes, std::uint64_t firstFrame) {
  for (std::size_t i = 0; i < codes.size(); ++i) {
    const std::uint64_t frame = firstFrame + i + delay;
    tooLate += frame < sentUpTo ? 1 : 0;
    samples[static_cast<std::size_t>(frame % samples.size())] = {frame, DecodeALaw(codes[i]) * gain};
  }
}

void CAudioEcho::AddTo(std::uint8_t* codes, std::size_t count, std::uint64_t firstFrame) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t frame = firstFrame + i;
    const SSample& echo = samples[static_cast<std::size_t>(frame % samples.size())];
    if (echo.frame == frame) {
      const long sum = std::lround(DecodeALaw(codes[i]) + echo.value);
      codes[i] = EncodeALaw(static_cast<std::int16_t>(std::clamp(sum, -32768L, 32767L)));
    }
  }
  sentUpTo = firstFrame + count;
}

}  // namespace cardsim
