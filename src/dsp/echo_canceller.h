// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dsp/double_talk_detector.h"

struct echo_can_state_s;  // spandsp's

namespace zelk {

// One channel position's line echo canceller: takes out of the received sound what comes back of the sent one.
// The linear part is spandsp's adaptive filter, which learns when the double-talk detector lets it. What it leaves is
// clipped to the tracked background noise, but only while the echo stands at least 24 dB below what was sent: near-end
// speech, alone or over the far end, passes as it is. Thread: Create any; the rest one thread at a time (receive).
// Nothing blocks; nothing allocates once it is made.
class CEchoCanceller {
 public:
  struct SFree {
    void operator()(uint8_t* memory) const;
  };
  // What cancellers work on, several bytes a tap: zeros, which a system that gives memory as it is written to need not
  // have before the first sample.
  using Memory = std::unique_ptr<uint8_t[], SFree>;
  // For count cancellers of this tail, MemoryBytes after MemoryBytes. Null when there is no memory.
  static Memory NewMemory(size_t count, int32_t tailMs);
  static size_t MemoryBytes(int32_t tailMs);

  // tailMs is brought into 32..1024: the canceller looks at 256 samples of history whatever its length is, and a longer
  // tail than a second only costs. Null when there is no memory.
  static std::unique_ptr<CEchoCanceller> Create(int32_t tailMs);
  // On the caller's memory, which stays as long: one of NewMemory's parts.
  CEchoCanceller(int32_t tailMs, uint8_t* memory);
  ~CEchoCanceller() = default;
  CEchoCanceller(const CEchoCanceller&) = delete;
  CEchoCanceller& operator=(const CEchoCanceller&) = delete;

  // One pair of 16-bit linear samples: the one sent to the line and the one received. Returns the cleaned sample.
  int16_t Update(int16_t sent, int16_t received);
  // The same for count A-law bytes that stand stride bytes apart; received is replaced. The reference ends after
  // sentCount bytes; idle bytes stand for the rest.
  void Process(uint8_t* received, const uint8_t* sent, size_t count, size_t sentCount, size_t stride);

  int32_t Taps() const { return taps; }

 private:
  // Takes half of the sample before from each sample.
  struct STilt {
    int16_t Apply(int16_t sample);
    int16_t before = 0;
  };

  int32_t CancelLinear(int16_t sent, int16_t received);
  int16_t EstimateEcho(int16_t sent, int16_t received);
  void SetStep(int16_t sent);
  void TrackLevels(int16_t sent, int32_t residual);

  static constexpr size_t kStateBytes = 448;

  Memory ownMemory;  // of one that Create made
  int32_t taps;
  alignas(16) std::array<std::byte, kStateBytes> state;
  echo_can_state_s* canceller;  // there
  CDoubleTalkDetector doubleTalk;
  STilt sentTilt;
  STilt receivedTilt;
  int32_t echoNow = 0;     // the last sample of the echo, in 256ths of a unit
  int64_t tailEnergy = 0;  // sum of the squares of what the filter was fed within the tail
  float tailDecay;         // a sample's, so that a level falls to a third within the tail
  // Mean magnitudes of 16-bit samples.
  float sentNow = 0;      // over the last few milliseconds
  float sentInTail = 0;   // the same, falling no faster than echoes of it die away
  float residualNow = 0;  // of the canceller's output
  float noise = 8;        // of the output while nothing is sent and nobody speaks; starts at A-law's smallest value
};

}  // namespace zelk
