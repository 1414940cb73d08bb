#include "cardsim/audio/audio_slots.h"

#include <gtest/gtest.h>

namespace cardsim {
namespace {

TEST(AudioSlots, IdleTimeslotsCarrySilence) {
  CAudioSlots slots(2);
  Bytes area(2 * 32 * 22, 0);
  EXPECT_FALSE(slots.Fill(area, 22, 0));
  EXPECT_EQ(area, Bytes(area.size(), kSilence));
}

TEST(AudioSlots, SourceOfATimeslotIsSentAtItsPlaceInEveryFrame) {
  CAudioSlots slots(2);
  slots.SetSource(1, 5, MakeBytesSource(Bytes{10, 11, 12}));
  Bytes area(2 * 32 * 4, 0);
  EXPECT_TRUE(slots.Fill(area, 4, 0));
  for (std::size_t frame = 0; frame < 4; ++frame) {
    const std::uint8_t expected = frame < 3 ? static_cast<std::uint8_t>(10 + frame) : kSilence;
    EXPECT_EQ(area[frame * 64 + 32 + 5], expected) << frame;
    area[frame * 64 + 32 + 5] = kSilence;
  }
  EXPECT_EQ(area, Bytes(area.size(), kSilence));
}

TEST(AudioSlots, WhatIsFilledIsRecordedByteForByteForEveryTrunkCount) {
  for (int trunks = 1; trunks <= kMaxTrunks; ++trunks) {
    CAudioSlots slots(trunks);
    const Bytes sound = RenderTestPattern(777, static_cast<std::uint32_t>(trunks));
    const AudioSource source = MakeBytesSource(sound);
    const auto recorder = std::make_shared<CRecorder>();
    slots.SetSource(trunks - 1, 31, source);
    slots.AddRecorder(trunks - 1, 31, recorder);
    const int frames = LargestFrameCount(trunks);
    std::uint64_t frame = 1000;
    while (slots.IsPlaying(source)) {
      Bytes area(AudioPacketBytes(trunks, frames) - kAudioHeaderBytes);
      slots.Fill(area, frames, 0);
      slots.Record(area, frames, frame);
      frame += static_cast<std::uint64_t>(frames);
    }
    Bytes heard = recorder->Samples();
    ASSERT_GE(heard.size(), sound.size());
    EXPECT_EQ(Bytes(heard.begin() + static_cast<std::ptrdiff_t>(sound.size()), heard.end()),
              Bytes(heard.size() - sound.size(), kSilence));
    heard.resize(sound.size());
    EXPECT_EQ(heard, sound) << trunks;
    EXPECT_EQ(recorder->FirstFrame(), 1000U);
  }
}

TEST(AudioSlots, OneTimeslotFeedsSeveralRecordersAndARemovedOneHearsNoMore) {
  CAudioSlots slots(1);
  const auto first = std::make_shared<CRecorder>();
  const auto second = std::make_shared<CRecorder>();
  slots.AddRecorder(0, 1, first);
  slots.AddRecorder(0, 1, second);
  const Bytes area(32 * 18, 0x42);
  slots.Record(area, 18, 0);
  slots.RemoveRecorder(0, 1, first);
  slots.Record(area, 18, 18);
  EXPECT_EQ(first->Size(), 18U);
  EXPECT_EQ(second->Size(), 36U);
}

TEST(AudioSlots, ANewerSourceIsNotClearedInThePlaceOfTheOld) {
  CAudioSlots slots(1);
  const AudioSource old = MakeBytesSource(Bytes(100, 1));
  const AudioSource fresh = MakeBytesSource(Bytes(100, 2));
  slots.SetSource(0, 1, old);
  slots.SetSource(0, 1, fresh);
  slots.ClearSource(0, 1, old);
  EXPECT_TRUE(slots.IsPlaying(fresh));
  EXPECT_FALSE(slots.IsPlaying(old));
}

TEST(AudioSlots, PlacesOutsideTheCardAreIgnored) {
  CAudioSlots slots(1);
  for (const auto& [trunk, timeslot] : std::vector<std::pair<int, int>>{{1, 1}, {-1, 1}, {0, 32}, {0, -1}}) {
    const AudioSource source = MakeBytesSource(Bytes{1});
    slots.SetSource(trunk, timeslot, source);
    EXPECT_FALSE(slots.IsPlaying(source));
  }
}

}  // namespace
}  // namespace cardsim
