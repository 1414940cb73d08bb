#include "cardsim/audio/audio_slots.h"

#include <algorithm>

namespace cardsim {
namespace {

// A packet of one trunk has the most frames: (1448 - 8) / 32.
static_assert((kMaxAudioPacket - kAudioHeaderBytes) / kTimeslots <= 64);

}  // namespace

bool CAudioSlots::IsSlot(int trunk, int timeslot) const {
  return trunk >= 0 && trunk < trunks && timeslot >= 0 && timeslot < kTimeslots;
}

void CAudioSlots::SetSource(int trunk, int timeslot, AudioSource source) {
  if (IsSlot(trunk, timeslot)) {
    slots[Index(trunk, timeslot)].source = std::move(source);
  }
}

void CAudioSlots::ClearSource(int trunk, int timeslot, const AudioSource& source) {
  if (IsSlot(trunk, timeslot) && slots[Index(trunk, timeslot)].source == source) {
    slots[Index(trunk, timeslot)].source.reset();
  }
}

bool CAudioSlots::IsPlaying(const AudioSource& source) const {
  return source != nullptr &&
         std::any_of(slots.begin(), slots.end(), [&](const SSlot& s) { return s.source == source; });
}

void CAudioSlots::AddRecorder(int trunk, int timeslot, Recorder recorder) {
  if (IsSlot(trunk, timeslot)) {
    slots[Index(trunk, timeslot)].recorders.push_back(std::move(recorder));
  }
}

void CAudioSlots::RemoveRecorder(int trunk, int timeslot, const Recorder& recorder) {
  if (IsSlot(trunk, timeslot)) {
    std::erase(slots[Index(trunk, timeslot)].recorders, recorder);
  }
}

void CAudioSlots::SetEcho(int trunk, int timeslot, const std::optional<SEchoPath>& path) {
  if (IsSlot(trunk, timeslot)) {
    slots[Index(trunk, timeslot)].echo = path ? std::make_unique<CAudioEcho>(*path) : nullptr;
  }
}

std::uint64_t CAudioSlots::EchoesTooLate() const {
  std::uint64_t sum = 0;
  for (const SSlot& slot : slots) {
    sum += slot.echo != nullptr ? slot.echo->TooLate() : 0;
  }
  return sum;
}

bool CAudioSlots::Fill(std::span<std::uint8_t> area, int frames, std::uint64_t firstFrame) {
  std::fill(area.begin(), area.end(), kSilence);
  const std::size_t count = std::min(static_cast<std::size_t>(frames), column.size());
  bool ended = false;
  for (std::size_t place = 0; place < Stride(); ++place) {
    SSlot& slot = slots[place];
    if (slot.source == nullptr && slot.echo == nullptr) {
      continue;
    }
    const std::size_t got = slot.source == nullptr ? 0 : slot.source->Read(std::span(column).first(count));
    std::fill(column.begin() + static_cast<std::ptrdiff_t>(got), column.end(), kSilence);
    if (slot.source != nullptr && got < count) {
      slot.source.reset();
      ended = true;
    }
    if (slot.echo != nullptr) {
      slot.echo->AddTo(column.data(), count, firstFrame);
    }
    for (std::size_t frame = 0; frame < count; ++frame) {
      area[frame * Stride() + place] = column[frame];
    }
  }
  return ended;
}

void CAudioSlots::Record(ByteView area, int frames, std::uint64_t firstFrame) {
  const std::size_t count = std::min(static_cast<std::size_t>(frames), column.size());
  for (std::size_t place = 0; place < Stride(); ++place) {
    const SSlot& slot = slots[place];
    if (slot.recorders.empty() && slot.echo == nullptr) {
      continue;
    }
    for (std::size_t frame = 0; frame < count; ++frame) {
      column[frame] = area[frame * Stride() + place];
    }
    const ByteView heard = ByteView(column).first(count);
    for (const Recorder& recorder : slot.recorders) {
      recorder->Append(heard, firstFrame);
    }
    if (slot.echo != nullptr) {
      slot.echo->Hear(heard, firstFrame);
    }
  }
}

}  // namespace cardsim
