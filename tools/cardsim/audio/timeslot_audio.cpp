// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/timeslot_audio.h"

#include <algorithm>

namespace cardsim {
namespace {

// A packet of one trunk has the most frames: (1448 - 8) / 32.
static_assert((kMaxAudioPacket - kAudioHeaderBytes) / kTimeslots <= 64);

}  // namespace

bool CTimeslotAudio::IsTimeslot(int trunk, int timeslot) const {
  return trunk >= 0 && trunk < trunks && timeslot >= 0 && timeslot < kTimeslots;
}

void CTimeslotAudio::SetSource(int trunk, int timeslot, AudioSource source) {
  if (IsTimeslot(trunk, timeslot)) {
    timeslots[Index(trunk, timeslot)].source = std::move(source);
  }
}

void CTimeslotAudio::ClearSource(int trunk, int timeslot, const AudioSource& source) {
  if (IsTimeslot(trunk, timeslot) && timeslots[Index(trunk, timeslot)].source == source) {
    timeslots[Index(trunk, timeslot)].source.reset();
  }
}

bool CTimeslotAudio::IsPlaying(const AudioSource& source) const {
  return source != nullptr &&
         std::any_of(timeslots.begin(), timeslots.end(), [&](const STimeslot& s) { return s.source == source; });
}

void CTimeslotAudio::AddRecorder(int trunk, int timeslot, Recorder recorder) {
  if (IsTimeslot(trunk, timeslot)) {
    timeslots[Index(trunk, timeslot)].recorders.push_back(std::move(recorder));
  }
}

void CTimeslotAudio::RemoveRecorder(int trunk, int timeslot, const Recorder& recorder) {
  if (IsTimeslot(trunk, timeslot)) {
    std::erase(timeslots[Index(trunk, timeslot)].recorders, recorder);
  }
}

void CTimeslotAudio::SetEcho(int trunk, int timeslot, const std::optional<SEchoPath>& path) {
  if (IsTimeslot(trunk, timeslot)) {
    timeslots[Index(trunk, timeslot)].echo = path ? std::make_unique<CAudioEcho>(*path) : nullptr;
  }
}

std::uint64_t CTimeslotAudio::EchoesTooLate() const {
  std::uint64_t sum = 0;
  for (const STimeslot& own : timeslots) {
    sum += own.echo != nullptr ? own.echo->TooLate() : 0;
  }
  return sum;
}

bool CTimeslotAudio::Fill(std::span<std::uint8_t> area, int frames, std::uint64_t firstFrame) {
  std::fill(area.begin(), area.end(), kSilence);
  const std::size_t count = std::min(static_cast<std::size_t>(frames), column.size());
  bool ended = false;
  for (std::size_t place = 0; place < Stride(); ++place) {
    STimeslot& own = timeslots[place];
    if (own.source == nullptr && own.echo == nullptr) {
      continue;
    }
    const std::size_t got = own.source == nullptr ? 0 : own.source->Read(std::span(column).first(count));
    std::fill(column.begin() + static_cast<std::ptrdiff_t>(got), column.end(), kSilence);
    if (own.source != nullptr && got < count) {
      own.source.reset();
      ended = true;
    }
    if (own.echo != nullptr) {
      own.echo->AddTo(column.data(), count, firstFrame);
    }
    for (std::size_t frame = 0; frame < count; ++frame) {
      area[frame * Stride() + place] = column[frame];
    }
  }
  return ended;
}

void CTimeslotAudio::Record(ByteView area, int frames, std::uint64_t firstFrame) {
  const std::size_t count = std::min(static_cast<std::size_t>(frames), column.size());
  for (std::size_t place = 0; place < Stride(); ++place) {
    const STimeslot& own = timeslots[place];
    if (own.recorders.empty() && own.echo == nullptr) {
      continue;
    }
    for (std::size_t frame = 0; frame < count; ++frame) {
      column[frame] = area[frame * Stride() + place];
    }
    const ByteView heard = ByteView(column).first(count);
    for (const Recorder& recorder : own.recorders) {
      recorder->Append(heard, firstFrame);
    }
    if (own.echo != nullptr) {
      own.echo->Hear(heard, firstFrame);
    }
  }
}

}  // namespace cardsim
