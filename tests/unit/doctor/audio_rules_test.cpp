// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doctor/core/clock_fit.h"
#include "findings.h"

namespace doctor {
namespace {

using test::FactsOf;
using test::Measured;
using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;
using tool::Bytes;
using trace::kMillisecond;
using trace::kSecond;
using trace::Time;
using trace::test::CConversation;
using trace::test::ChannelElement;
using trace::test::kBegin;
using trace::test::Message;
using trace::test::UdpPacket;
using trace::test::Wire;

constexpr int kFrames = 45;
constexpr Time kPacketTime = kFrames * kSecond / 8000;
constexpr std::uint16_t kAudioPort = 45000;
constexpr std::uint8_t kLoud = 0x35;

// The connection, a call on timeslot 1, the audio port.
CConversation Called() {
  CConversation talk;
  talk.Open();
  talk.SetUp(1);
  talk.Send(true, {0xFF, 0x05, kAudioPort & 0xFF, kAudioPort >> 8, 0xFF});
  talk.Signal(false, 0, Message(1, false, 0x05, ChannelElement(1)));
  talk.Signal(true, 0, Message(1, true, 0x07));
  return talk;
}

Bytes Sound(std::uint32_t sequence, std::uint8_t code) {
  Bytes packet(tool::AudioPacketBytes(1, kFrames), tool::kSilence);
  tool::WriteAudioHeader(packet.data(), sequence, 0);
  for (std::size_t at = tool::kAudioHeaderBytes + 1; at < packet.size(); at += tool::kTimeslots) {
    packet[at] = code;
  }
  return packet;
}

// What one packet from the card may be to the library: at the time, with a reply after the delay, if any.
struct SPacketOfCard {
  std::uint32_t sequence;
  Time time;
  std::optional<Time> reply = kMillisecond;
};

struct SCodes {
  std::uint8_t fromLine = kLoud;
  std::uint8_t toLine = kLoud;
};

Wire WithSound(const std::vector<SPacketOfCard>& packets, SCodes codes = {}) {
  Wire wire = Called().wire;
  const Time begin = wire.back().time;
  std::uint32_t replies = 0;
  for (const SPacketOfCard& packet : packets) {
    const auto fromLine =
        static_cast<std::uint8_t>(codes.fromLine ^ (codes.fromLine == kLoud ? packet.sequence & 1 : 0));
    wire.push_back(
        {begin + packet.time, UdpPacket(false, kAudioPort, tool::kCardPort, Sound(packet.sequence, fromLine))});
    if (packet.reply) {
      wire.push_back({begin + packet.time + *packet.reply,
                      UdpPacket(true, kAudioPort, tool::kCardPort, Sound(replies++, codes.toLine))});
    }
  }
  return wire;
}

std::vector<SPacketOfCard> Packets(int count) {
  std::vector<SPacketOfCard> packets;
  for (int i = 0; i < count; ++i) {
    packets.push_back({static_cast<std::uint32_t>(i + 1), i * kPacketTime});
  }
  packets[0].reply.reset();  // of the first packet none is owed
  return packets;
}

std::vector<std::string> SaidOfSound(const Wire& wire) {
  return Said(AudioRules(FactsOf(wire)));
}

TEST(DoctorSound, ASoundCallHasNothingToRemark) {
  const Findings findings = AudioRules(FactsOf(WithSound(Packets(1100))));
  EXPECT_THAT(Said(findings), IsEmpty());
  EXPECT_THAT(Measured(findings), ElementsAre("reply-delay: Card 100001: the library replies to sound within 1.01 ms, "
                                              "in 99 of 100 cases within 1.01 ms."));
}

TEST(DoctorSound, NoSoundOrNoReplyIsTold) {
  Wire silent = Called().wire;
  silent.push_back({silent.back().time + 4 * kSecond, UdpPacket(true, 9, 9, Bytes{1})});
  EXPECT_THAT(SaidOfSound(silent), ElementsAre("fault audio-none: Card 100001 sends no sound."));
  std::vector<SPacketOfCard> packets = Packets(600);
  for (SPacketOfCard& packet : packets) {
    packet.reply.reset();
  }
  EXPECT_THAT(SaidOfSound(WithSound(packets)),
              ElementsAre("fault audio-no-replies: Card 100001 sends sound and the library sends none back."));
}

TEST(DoctorSound, LostAndDoublePacketsAreTold) {
  std::vector<SPacketOfCard> packets = Packets(1000);
  for (const int at : {300, 500, 700}) {
    EXPECT_THAT(SaidOfSound(WithSound(packets)), IsEmpty());  // two of them are chance
    packets.erase(packets.begin() + at);
    packets[static_cast<std::size_t>(at)].reply.reset();  // after a jump none is owed
  }
  EXPECT_THAT(SaidOfSound(WithSound(packets)),
              ElementsAre("warning audio-lost: Card 100001: 3 of 1000 packets of sound did not arrive."));
  packets = Packets(900);
  for (const int at : {300, 500, 700}) {
    const SPacketOfCard& before = packets[static_cast<std::size_t>(at - 1)];
    packets.insert(packets.begin() + at, {before.sequence, before.time + 1, std::nullopt});
  }
  EXPECT_THAT(SaidOfSound(WithSound(packets)),
              ElementsAre("warning audio-double: Card 100001: 3 of 903 packets of sound came twice or behind later "
                          "ones."));
}

TEST(DoctorSound, APauseIsTold) {
  std::vector<SPacketOfCard> packets = Packets(500);
  for (std::size_t i = 250; i < packets.size(); ++i) {
    packets[i].time += 304 * kMillisecond;
  }
  EXPECT_THAT(SaidOfSound(WithSound(packets)),
              ElementsAre("warning audio-late: Card 100001: no sound came for 310 ms."));
}

SWireFacts WithPauses(Time longest, Time all, Time length) {
  SWireFacts wire;
  SCardFacts& card = wire.cards[1];
  card.serial = 100001;
  card.audioFromCard.Add({kBegin, 1});
  card.audioFromCard.Add({kBegin + length, 2});
  card.pauses.Add({kBegin, 1});
  card.longestPause = longest;
  card.allPauses = all;
  return wire;
}

TEST(DoctorSound, APauseIsLongOrAPartOfTheTime) {
  EXPECT_THAT(Said(AudioRules(WithPauses(310 * kMillisecond, 310 * kMillisecond, 311 * kSecond))), IsEmpty());
  EXPECT_THAT(Said(AudioRules(WithPauses(310 * kMillisecond, 620 * kMillisecond, 311 * kSecond))),
              ElementsAre("warning audio-late: Card 100001: no sound came for 310 ms."));
  EXPECT_THAT(Said(AudioRules(WithPauses(kSecond, kSecond, 86'400 * kSecond))),
              ElementsAre("warning audio-late: Card 100001: no sound came for 1000 ms."));
}

TEST(DoctorSound, AFewStarvedBlocksOfManyAreNot) {
  SWireFacts wire;
  wire.cards[1].serial = 100001;
  wire.cards[1].trunks.resize(1);
  wire.cards[1].trunks[0].starvedBlocks = 12;
  wire.cards[1].trunks[0].soundBlocks = 12'001;
  EXPECT_THAT(Said(AudioRules(wire)), IsEmpty());
  wire.cards[1].trunks[0].soundBlocks = 12'000;
  EXPECT_THAT(Said(AudioRules(wire)), ElementsAre(testing::StartsWith("warning lines-starved: Trunk 100001-1: ")));
}

TEST(DoctorSound, LateRepliesAreTold) {
  std::vector<SPacketOfCard> packets = Packets(100);
  for (std::size_t i = 97; i < 100; ++i) {
    packets[i].reply = 250 * kMillisecond;
  }
  EXPECT_THAT(
      SaidOfSound(WithSound(packets)),
      ElementsAre("warning replies-late: Card 100001: the library answered 3 of 100 packets of sound after more "
                  "than 200 ms."));
}

TEST(DoctorSound, MissingRepliesAreTold) {
  std::vector<SPacketOfCard> packets = Packets(100);
  for (std::size_t i = 97; i < 100; ++i) {
    packets[i].reply.reset();
  }
  packets.push_back({101, packets.back().time + 4 * kSecond, std::nullopt});
  EXPECT_THAT(SaidOfSound(WithSound(packets)),
              testing::Contains("warning replies-missing: Card 100001: the library left 3 packets of sound without "
                                "a reply."));
}

TEST(DoctorSound, StarvedLinesAreTold) {
  EXPECT_THAT(SaidOfSound(WithSound(Packets(30), {.toLine = 0x54})), IsEmpty());
  EXPECT_THAT(SaidOfSound(WithSound(Packets(50), {.toLine = 0x54})),
              ElementsAre("warning lines-starved: Trunk 100001-1: the library had no sound for connected calls in 13 "
                          "blocks of 20 ms."));
}

TEST(DoctorSound, ADeadLineIsTold) {
  const Findings findings = AudioRules(FactsOf(WithSound(Packets(1000), {.fromLine = tool::kSilence})));
  EXPECT_THAT(Said(findings), ElementsAre("warning sound-none-from-line: Trunk 100001-1: nothing came from the line in "
                                          "1 connected call to which the library sent sound."));
  // Shorter ones, and those to which nothing is said either, may well be.
  EXPECT_THAT(SaidOfSound(WithSound(Packets(800), {.fromLine = tool::kSilence})), IsEmpty());
  EXPECT_THAT(SaidOfSound(WithSound(Packets(1000), {.fromLine = tool::kSilence, .toLine = tool::kSilence})), IsEmpty());
}

// A clock that is so much too fast, seen through packets that are up to 2 ms late.
std::optional<SClockFacts> Rate(double ppm, int seconds) {
  CClockFit fit;
  std::uint32_t random = 1;
  for (int i = 0; i < seconds * 8000 / kFrames; ++i) {
    random = random * 1664525U + 1013904223U;
    const double time = i * kFrames / 8000.0 / (1 + ppm * 1e-6) + (random >> 8) * 2e-3 / (1 << 24);
    fit.Add(static_cast<std::uint32_t>(i), kFrames, kBegin + static_cast<Time>(time * 1e9));
  }
  return fit.Result();
}

TEST(DoctorClock, TheRateIsWithinItsError) {
  for (const double ppm : {0.0, 30.0, -150.0}) {
    const std::optional<SClockFacts> clock = Rate(ppm, 60);
    ASSERT_TRUE(clock);
    EXPECT_LT(std::abs(clock->ppm - ppm), 2 * clock->error) << ppm;
    EXPECT_LT(clock->error, 2);
    EXPECT_NEAR(clock->seconds, 59, 1);
  }
  EXPECT_FALSE(Rate(0, 9));
}

TEST(DoctorClock, ALongCaptureNeedsNoMoreMemory) {
  CClockFit fit;
  for (std::uint32_t i = 0; i < 10'000; ++i) {
    fit.Add(i, 8000, kBegin + i * kSecond);  // a second each
  }
  ASSERT_TRUE(fit.Result());
  EXPECT_NEAR(fit.Result()->ppm, 0, 1e-3);
}

SWireFacts WithClocks(const SClockFacts& one, const SClockFacts& other) {
  SWireFacts wire;
  wire.cards[1].serial = 100001;
  wire.cards[1].clock = one;
  wire.cards[2].serial = 100002;
  wire.cards[2].clock = other;
  return wire;
}

TEST(DoctorClock, RatesAreMeasuredAndComparedWithTheirErrors) {
  const Findings sound = ClockRules(WithClocks({3.21, 0.4, 60}, {3.9, 0.4, 60}));
  EXPECT_THAT(Said(sound), IsEmpty());
  EXPECT_THAT(Measured(sound), ElementsAre("clock-rate: Card 100001: its clock runs at +3.21 ppm, give or take 0.40 "
                                           "against this capture's, over 60 s.",
                                           "clock-rate: Card 100002: its clock runs at +3.90 ppm, give or take 0.40 "
                                           "against this capture's, over 60 s."));
  EXPECT_THAT(
      Said(ClockRules(WithClocks({0, 0.3, 60}, {12.3, 0.4, 60}))),
      ElementsAre("warning clocks-differ: The clocks of cards 100001 and 100002 are 12.3 ppm apart, give or take "
                  "0.5."));
  EXPECT_THAT(Said(ClockRules(WithClocks({0, 0.3, 60}, {12.3, 9, 60}))), IsEmpty());
  EXPECT_THAT(Said(ClockRules(WithClocks({0, 0.3, 60}, {-140, 0.4, 20}))), IsEmpty());  // too short
  EXPECT_THAT(Said(ClockRules(WithClocks({-140, 0.3, 60}, {-140, 60, 60}))),
              ElementsAre("warning clock-wrong: Card 100001: its clock runs at -140.00 ppm, give or take 0.30 against "
                          "this capture's, over 60 s."));
}

}  // namespace
}  // namespace doctor
