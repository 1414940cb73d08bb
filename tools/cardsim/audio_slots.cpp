#include "cardsim/audio_slots.h"

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

bool CAudioSlots::Fill(std::span<std::uint8_t> area, int frames) {
  std::fill(area.begin(), area.end(), kSilence);
  const std::size_t count = std::min(static_cast<std::size_t>(frames), column.size());
  bool ended = false;
  for (std::size_t slot = 0; slot < Stride(); ++slot) {
    AudioSource& source = slots[slot].source;
    if (source == nullptr) {
      continue;
    }
    const std::size_t got = source->Read(std::span(column).first(count));
    for (std::size_t frame = 0; frame < got; ++frame) {
      area[frame * Stride() + slot] = column[frame];
    }
    if (got < count) {
      source.reset();
      ended = true;
    }
  }
  return ended;
}

void CAudioSlots::Record(ByteView area, int frames, std::uint64_t firstFrame) {
  const std::size_t count = std::min(static_cast<std::size_t>(frames), column.size());
  for (std::size_t slot = 0; slot < Stride(); ++slot) {
    if (slots[slot].recorders.empty()) {
      continue;
    }
    for (std::size_t frame = 0; frame < count; ++frame) {
      column[frame] = area[frame * Stride() + slot];
    }
    for (const Recorder& recorder : slots[slot].recorders) {
      recorder->Append(ByteView(column).first(count), firstFrame);
    }
  }
}

}  // namespace cardsim
