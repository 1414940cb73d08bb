// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/timeslot_audio.h"

#include <gtest/gtest.h>

namespace cardsim {
namespace {

TEST(TimeslotAudio, IdleTimeslotsCarrySilence) {
  CTimeslotAudio timeslots(2);
  Bytes area(2 * 32 * 22, 0);
  EXPECT_FALSE(timeslots.Fill(area, 22, 0));
  EXPECT_EQ(area, Bytes(area.size(), kSilence));
}

TEST(TimeslotAudio, SourceOfATimeslotIsSentAtItsPlaceInEveryFrame) {
  CTimeslotAudio timeslots(2);
  timeslots.SetSource(1, 5, MakeBytesSource(Bytes{10, 11, 12}));
  Bytes area(2 * 32 * 4, 0);
  EXPECT_TRUE(timeslots.Fill(area, 4, 0));
  for (std::size_t frame = 0; frame < 4; ++frame) {
    const std::uint8_t expected = frame < 3 ? static_cast<std::uint8_t>(10 + frame) : kSilence;
    EXPECT_EQ(area[frame * 64 + 32 + 5], expected) << frame;
    area[frame * 64 + 32 + 5] = kSilence;
  }
  EXPECT_EQ(area, Bytes(area.size(), kSilence));
}

TEST(TimeslotAudio, WhatIsFilledIsRecordedByteForByteForEveryTrunkCount) {
  for (int trunks = 1; trunks <= kMaxTrunks; ++trunks) {
    CTimeslotAudio timeslots(trunks);
    const Bytes sound = RenderTestPattern(777, static_cast<std::uint32_t>(trunks));
    const AudioSource source = MakeBytesSource(sound);
    const auto recorder = std::make_shared<CRecorder>();
    timeslots.SetSource(trunks - 1, 31, source);
    timeslots.AddRecorder(trunks - 1, 31, recorder);
    const int frames = LargestFrameCount(trunks);
    std::uint64_t frame = 1000;
    while (timeslots.IsPlaying(source)) {
      Bytes area(AudioPacketBytes(trunks, frames) - kAudioHeaderBytes);
      timeslots.Fill(area, frames, 0);
      timeslots.Record(area, frames, frame);
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

TEST(TimeslotAudio, OneFeedsSeveralRecordersAndARemovedOneHearsNoMore) {
  CTimeslotAudio timeslots(1);
  const auto first = std::make_shared<CRecorder>();
  const auto second = std::make_shared<CRecorder>();
  timeslots.AddRecorder(0, 1, first);
  timeslots.AddRecorder(0, 1, second);
  const Bytes area(32 * 18, 0x42);
  timeslots.Record(area, 18, 0);
  timeslots.RemoveRecorder(0, 1, first);
  timeslots.Record(area, 18, 18);
  EXPECT_EQ(first->Size(), 18U);
  EXPECT_EQ(second->Size(), 36U);
}

TEST(TimeslotAudio, ANewerSourceIsNotClearedInThePlaceOfTheOld) {
  CTimeslotAudio timeslots(1);
  const AudioSource old = MakeBytesSource(Bytes(100, 1));
  const AudioSource fresh = MakeBytesSource(Bytes(100, 2));
  timeslots.SetSource(0, 1, old);
  timeslots.SetSource(0, 1, fresh);
  timeslots.ClearSource(0, 1, old);
  EXPECT_TRUE(timeslots.IsPlaying(fresh));
  EXPECT_FALSE(timeslots.IsPlaying(old));
}

TEST(TimeslotAudio, PlacesOutsideTheCardAreIgnored) {
  CTimeslotAudio timeslots(1);
  for (const auto& [trunk, timeslot] : std::vector<std::pair<int, int>>{{1, 1}, {-1, 1}, {0, 32}, {0, -1}}) {
    const AudioSource source = MakeBytesSource(Bytes{1});
    timeslots.SetSource(trunk, timeslot, source);
    EXPECT_FALSE(timeslots.IsPlaying(source));
  }
}

}  // namespace
}  // namespace cardsim
