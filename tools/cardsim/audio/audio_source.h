// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cardsim/base/bytes.h"

namespace cardsim {

// Job: what a timeslot sends to the library, A-law at 8 kHz. Thread: audio (Read), under the card's audio lock. Nothing
// may block. A source is used by one timeslot and owns its samples.
class IAudioSource {
 public:
  virtual ~IAudioSource() = default;
  // Fills `out` from the start and returns how many bytes it wrote; fewer than asked means that it has ended.
  virtual std::size_t Read(std::span<std::uint8_t> out) = 0;
};

using AudioSource = std::shared_ptr<IAudioSource>;

// Plays the bytes as they are, once or for ever.
AudioSource MakeBytesSource(Bytes samples, bool loop = false);
// The same of bytes that many timeslots share.
AudioSource MakeBytesSource(std::shared_ptr<const Bytes> samples, bool loop = false);
// A sum of sines, each at `level` dBm0, for ever.
AudioSource MakeToneSource(std::vector<double> frequencies, double level);

// One after another; the last may have no end.
AudioSource MakeChain(std::vector<AudioSource> sources);

// The same sounds as bytes, for tests that compare. Milliseconds and dBm0 (per tone).
Bytes RenderSilence(int ms);
Bytes RenderTone(const std::vector<double>& frequencies, double level, int ms);
// Digits 0-9 * # A-D; others throw std::invalid_argument. Each digit is `onMs` of tone followed by `offMs` of silence.
Bytes RenderDtmf(std::string_view digits, int onMs, int offMs, double level);
// Every A-law code in a fixed pseudo-random order that depends on `seed` only: sound that shows any lost, doubled or
// changed byte.
Bytes RenderTestPattern(std::size_t bytes, std::uint32_t seed);

}  // namespace cardsim
