// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "cardsim/audio/audio_echo.h"
#include "cardsim/audio/audio_source.h"
#include "cardsim/audio/recorder.h"
#include "common/wire.h"

namespace cardsim {

// Job: the timeslots of one card: which source each sends from and which recorders hear it. Turns sources into the
// sample area of a packet and a reply's sample area into recordings.
//   sample area: frame 0 [trunk 0: timeslot 0..31][trunk 1: ...] | frame 1 ...
// Thread: under the owner's lock. Nothing blocks. Sources and recorders are shared with the calls that use them.
class CTimeslotAudio {
 public:
  explicit CTimeslotAudio(int trunkCount) : trunks(trunkCount) {}

  bool IsTimeslot(int trunk, int timeslot) const;
  void SetSource(int trunk, int timeslot, AudioSource source);
  // Takes the source away if it is still the one that plays.
  void ClearSource(int trunk, int timeslot, const AudioSource& source);
  bool IsPlaying(const AudioSource& source) const;
  void AddRecorder(int trunk, int timeslot, Recorder recorder);
  void RemoveRecorder(int trunk, int timeslot, const Recorder& recorder);

  // What the timeslot hears comes back in what it sends; nothing takes the echo away.
  void SetEcho(int trunk, int timeslot, const std::optional<SEchoPath>& path);
  // Echo samples, of all timeslots, that were heard too late to be sent.
  std::uint64_t EchoesTooLate() const;

  // Fills the sample area; returns true when a source ended in it. Every byte of a source is sent once, in order.
  bool Fill(std::span<std::uint8_t> area, int frames, std::uint64_t firstFrame);
  void Record(ByteView area, int frames, std::uint64_t firstFrame);

 private:
  struct STimeslot {
    AudioSource source;
    std::vector<Recorder> recorders;
    std::unique_ptr<CAudioEcho> echo;
  };

  std::size_t Index(int trunk, int timeslot) const {
    return static_cast<std::size_t>(trunk) * kTimeslots + static_cast<std::size_t>(timeslot);
  }
  std::size_t Stride() const { return static_cast<std::size_t>(trunks) * kTimeslots; }

  int trunks;
  std::array<STimeslot, std::size_t{kMaxTrunks} * kTimeslots> timeslots;
  std::array<std::uint8_t, 64> column{};  // one timeslot's bytes of a packet
};

}  // namespace cardsim
