// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_echo.h"

#include <gtest/gtest.h>

#include <cmath>

#include "cardsim/audio/signals.h"
#include "cardsim/audio/timeslot_audio.h"
#include "common/g711.h"

namespace cardsim {
namespace {

constexpr int kPacket = 40;

// Packet by packet: what is sent in a packet, then what is heard in its reply. Returns what was sent.
Bytes PassThrough(CAudioEcho& echo, ByteView heard, ByteView own) {
  Bytes sent(own.begin(), own.end());
  for (std::size_t at = 0; at + kPacket <= heard.size(); at += kPacket) {
    echo.AddTo(&sent[at], kPacket, at);
    echo.Hear(heard.subspan(at, kPacket), at);
  }
  return sent;
}

TEST(AudioEcho, WhatIsHeardComesBackAfterTheDelayAndWeaker) {
  const Bytes heard = RenderNoise(-10, 1000, 3);
  CAudioEcho echo({.delayFrames = 100, .lossDb = 6});
  const Bytes sent = PassThrough(echo, heard, Bytes(heard.size(), 0xD5));
  EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 100), Bytes(100, 0xD5));
  for (std::size_t i = 100; i < sent.size(); ++i) {
    const double expected = DecodeALaw(0xD5) + DecodeALaw(heard[i - 100]) * std::pow(10, -6 / 20.0);
    ASSERT_EQ(sent[i], EncodeALaw(static_cast<std::int16_t>(std::lround(expected)))) << i;
  }
  EXPECT_NEAR(LevelOf(ByteView(sent).subspan(100)), -16, 0.3);
  EXPECT_EQ(echo.TooLate(), 0U);
}

TEST(AudioEcho, TheOwnSoundGoesOnUnderIt) {
  const Bytes heard = RenderNoise(-20, 500, 3);
  const Bytes own = RenderNoise(-20, 500, 4);
  CAudioEcho echo({.delayFrames = 64, .lossDb = 0});
  EXPECT_NEAR(LevelOf(ByteView(PassThrough(echo, heard, own)).subspan(64)), -17, 0.3);
}

TEST(AudioEcho, AnEchoDueBeforeItWasHeardIsCountedAndNotSent) {
  CAudioEcho echo({.delayFrames = kPacket / 2, .lossDb = 0});
  const Bytes sent = PassThrough(echo, Bytes(kPacket, 0x80), Bytes(kPacket, 0xD5));
  EXPECT_EQ(sent, Bytes(kPacket, 0xD5));
  EXPECT_EQ(echo.TooLate(), static_cast<std::uint64_t>(kPacket / 2));
}

TEST(AudioEcho, DelaysOutOfRangeAreTakenAsTheNearest) {
  CAudioEcho none({.delayFrames = -5, .lossDb = 0});
  CAudioEcho longest({.delayFrames = 1000000, .lossDb = 0});
  const Bytes heard = RenderNoise(-10, 1000, 3);
  PassThrough(none, heard, heard);
  const Bytes sent = PassThrough(longest, heard, Bytes(heard.size(), 0xD5));
  EXPECT_NE(sent[static_cast<std::size_t>(CAudioEcho::kLongest) + 8], 0xD5);
}

TEST(AudioEcho, ATimeslotWithAnEchoSendsItWithoutASourceAndTheOthersDoNot) {
  CTimeslotAudio timeslots(1);
  timeslots.SetEcho(0, 3, SEchoPath{.delayFrames = kPacket, .lossDb = 0});
  timeslots.SetEcho(0, 99, SEchoPath{});
  Bytes area(kPacket * kTimeslots);
  timeslots.Fill(area, kPacket, 0);
  timeslots.Record(Bytes(area.size(), 0x80), kPacket, 0);
  timeslots.Fill(area, kPacket, kPacket);
  for (std::size_t i = 0; i < area.size(); ++i) {
    const std::uint8_t expected = i % kTimeslots == 3 ? EncodeALaw(8 + 5504) : kSilence;
    ASSERT_EQ(area[i], expected) << i;
  }
  timeslots.SetEcho(0, 3, std::nullopt);
  timeslots.Fill(area, kPacket, 2 * kPacket);
  EXPECT_EQ(area[3], kSilence);
  EXPECT_EQ(timeslots.EchoesTooLate(), 0U);
}

}  // namespace
}  // namespace cardsim
