// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelk {

// Says when an echo canceller may learn: while what comes back is the echo of what was sent within the tail.
// The canceller's own test compares with the sound sent at this moment alone. After a delay every falling syllable
// looks to it like somebody speaking, and it falls back to what it knew half a second before: with speech it never
// learns an echo that is late. Here "somebody speaks" is decided against the loudest of the whole tail, and, once the
// filter has proven itself, by the residual growing beyond the echo estimate. A second of that is a changed line.
// Pure. Thread: one at a time. Allocates nothing: the maxima that it keeps are the caller's, who keeps them as long.
class CDoubleTalkDetector {
 public:
  static constexpr int32_t kMaxTaps = 8192;

  // How many maxima a tail of so many taps has; one above kMaxTaps counts as that.
  static constexpr size_t StretchesOf(int32_t taps) {
    return static_cast<size_t>(taps < kMaxTaps ? taps : kMaxTaps) / size_t{kStretch} + 2;
  }

  // stretchMaxima: StretchesOf(taps) of them, all 0.
  CDoubleTalkDetector(int32_t taps, int32_t* stretchMaxima);
  // Before a sample pair goes through the filter: may it learn from it?
  bool MayLearn(int16_t sent, int16_t received);
  // What came of it.
  void Note(int32_t echoEstimate, int32_t residual);

 private:
  static constexpr int32_t kStretch = 32;  // samples of the tail that are kept as one maximum

  void TrackTail();
  bool NearEndHeard();

  int32_t* maxima;  // of the tail's stretches, a ring
  int32_t stretches;
  int32_t stretchAt = 0;
  int32_t samplesInStretch = 0;
  int32_t stretchMaximum = 0;
  int32_t tailMaximum = 0;
  // Mean powers.
  int32_t sentPower = 0;      // over 32 samples, as the canceller measures it
  int32_t sentPeakPower = 0;  // over 8
  int32_t receivedPower = 0;  // over 8
  float estimatePower = 0;    // over 64
  float residualPower = 0;
  int32_t loudNearEnd = 0;  // samples without learning after a near end louder than the far end
  int32_t nearEnd = 0;      // after one that the residual showed
  int32_t shutByNearEnd = 0;
  int32_t proven = 0;  // samples with the echo well cancelled
};

}  // namespace zelk
