// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/analysis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "conversation.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

using test::Analyse;
using test::CConversation;
using test::FourCalls;
using test::kFourCalls;
using test::PcapFile;
using test::Short;
using test::SOutcome;
using test::Wire;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Analysis, OfAWholeCaptureHasNothingToRemark) {
  CConversation talk = FourCalls();
  talk.Close();
  const SOutcome outcome = Analyse(PcapFile(talk.wire));
  EXPECT_EQ(Short(outcome.heard.calls), kFourCalls);
  EXPECT_THAT(outcome.notes, IsEmpty());
  EXPECT_EQ(outcome.emptiness, "");
  EXPECT_EQ(outcome.heard.last.serial, test::kSerial);
  EXPECT_EQ(outcome.heard.last.trunks, 2);
  EXPECT_EQ(outcome.heard.disconnections, 1);
  const SCall& call = outcome.heard.calls[1];
  EXPECT_EQ(call.number, 2U);
  EXPECT_EQ(call.called, "4567");
  EXPECT_FALSE(call.fromLibrary);
  EXPECT_NE(call.alerting, 0);
  EXPECT_NE(call.connected, 0);
  EXPECT_EQ(call.clearedBy, EDirection::kToLibrary);
  EXPECT_EQ(call.how, ECallEnd::kReleased);
  EXPECT_FALSE(call.isPassedGap);
}

TEST(Analysis, DoubledAndReorderedPacketsGiveTheSameCalls) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::mt19937 random(seed);
    Wire wire;
    for (const test::SFrameOnWire& frame : FourCalls().wire) {
      wire.push_back(frame);
      if (random() % 4 == 0) {
        wire.push_back(frame);
      }
    }
    // The handshake stays: a capture begins with it or without. A packet comes some milliseconds too late or too early.
    for (std::size_t i = 6; i + 2 < wire.size(); ++i) {
      const std::size_t other = i + random() % 3;
      if (wire[other].time - wire[i].time < kSecond / 10) {
        std::swap(wire[i], wire[other]);
      }
    }
    const SOutcome outcome = Analyse(PcapFile(wire));
    EXPECT_EQ(Short(outcome.heard.calls), kFourCalls) << "seed " << seed;
    EXPECT_EQ(outcome.traffic.tcp.gaps, 0U);
    EXPECT_GT(outcome.traffic.tcp.repeated, 0U);
  }
}

// Any packet may be missing: the calls are the same, or a gap is told.
TEST(Analysis, ALostPacketChangesNoCallWithoutAWord) {
  const Wire wire = FourCalls().wire;
  unsigned told = 0;
  for (std::size_t lost = 0; lost < wire.size(); ++lost) {
    Wire rest = wire;
    rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(lost));
    const SOutcome outcome = Analyse(PcapFile(rest));
    const bool isSame = Short(outcome.heard.calls) == kFourCalls;
    const bool isTold = outcome.traffic.tcp.gaps > 0 || outcome.traffic.begunBefore > 0;
    // Nothing shows that something went before, or came after, what the capture has.
    const bool isAtTheEnd = lost + 2 >= wire.size();
    EXPECT_TRUE(isSame || isTold || isAtTheEnd) << "without packet " << lost;
    told += isTold ? 1 : 0;
    EXPECT_EQ(outcome.notes.empty(), !isTold) << "without packet " << lost;
    EXPECT_GE(outcome.heard.calls.size(), 3U);
  }
  EXPECT_GT(told, wire.size() / 3);
}

TEST(Analysis, BegunInTheMiddleLearnsTheTrunks) {
  Wire wire = FourCalls().wire;
  wire.erase(wire.begin(), wire.begin() + 20);
  const SOutcome outcome = Analyse(PcapFile(wire));
  ASSERT_EQ(Short(outcome.heard.calls).size(), 4U);
  EXPECT_EQ(Short(outcome.heard.calls)[3], "0304 4 127");
  EXPECT_EQ(outcome.heard.last.trunks, 2);
  EXPECT_EQ(outcome.heard.last.serial, 0U);
  EXPECT_THAT(outcome.notes, Contains(HasSubstr("began before the capture")));
}

TEST(Analysis, BegunInTheMiddleWithoutStatusNeedsToBeTold) {
  CConversation talk;
  talk.Open();
  talk.SetUp(1);
  talk.Call(1, 1, "0301", 16);
  Wire wire = talk.wire;
  wire.erase(wire.begin(), wire.begin() + 15);
  EXPECT_THAT(Analyse(PcapFile(wire)).notes, Contains(HasSubstr("--trunks")));
  EXPECT_EQ(Short(Analyse(PcapFile(wire), 1).heard.calls), (std::vector<std::string>{"0301 1 16"}));
}

TEST(Analysis, ACardThatConnectsAnewLosesItsCalls) {
  CConversation talk;
  talk.Open();
  talk.SetUp(1);
  talk.Signal(false, 0, test::Message(1, false, 0x05, test::ChannelElement(7)));
  CConversation again(test::kLibraryPort + 1);
  again.Wait(10 * kSecond);
  again.Open();
  again.SetUp(1);
  again.Call(1, 1, "0301", 16);
  Wire wire = talk.wire;
  wire.insert(wire.end(), again.wire.begin(), again.wire.end());
  const SOutcome outcome = Analyse(PcapFile(wire));
  ASSERT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{" 7 -1", "0301 1 16"}));
  EXPECT_EQ(outcome.heard.calls[0].how, ECallEnd::kConnectionLost);
  EXPECT_EQ(outcome.heard.connections.size(), 2U);
}

TEST(Analysis, ACardAtAnotherAddressKeepsItsName) {
  CConversation talk;
  talk.Open();
  talk.SetUp(1);
  talk.Call(1, 1, "0301", 16);
  CConversation moved(test::kLibraryPort + 1, test::kCard + 8);
  moved.Wait(10 * kSecond);
  moved.Open();
  moved.SetUp(1);
  moved.Call(1, 2, "0302", 17);
  Wire wire = talk.wire;
  wire.insert(wire.end(), moved.wire.begin(), moved.wire.end());
  const SOutcome outcome = Analyse(PcapFile(wire));
  ASSERT_EQ(outcome.heard.calls.size(), 2U);
  EXPECT_EQ(outcome.heard.calls[0].serial, outcome.heard.calls[1].serial);
  EXPECT_NE(outcome.heard.calls[0].card, outcome.heard.calls[1].card);
}

TEST(Analysis, TellsDiscoveryAndAudio) {
  Bytes audio(tool::AudioPacketBytes(1, 20));
  tool::WriteAudioHeader(audio.data(), 5, 0);
  Bytes small = audio;
  small.resize(100);
  const Wire wire{{test::kBegin, test::UdpPacket(true, 5854, 5854, test::Text("ZELK D"))},
                  {test::kBegin, test::UdpPacket(false, 5854, 5854, tool::BuildDiscoveryReply())},
                  {test::kBegin, test::UdpPacket(false, 5854, 5854, tool::BuildAnnouncement(77))},
                  {test::kBegin, test::UdpPacket(false, 5854, 5854, test::Text("ZELK X"))},
                  {test::kBegin, test::UdpPacket(false, 41000, 7000, audio)},
                  {test::kBegin, test::UdpPacket(false, 41000, 7000, small)}};
  const SOutcome outcome = Analyse(PcapFile(wire));
  ASSERT_EQ(outcome.heard.discovery.size(), 3U);
  EXPECT_EQ(outcome.heard.discovery[2].serial, 77U);
  EXPECT_THAT(outcome.heard.audio, ElementsAre(5U));
}

TEST(Analysis, OfACaptureWithoutCardsSaysSo) {
  const Wire wire{{test::kBegin, test::UdpPacket(true, 53, 53, test::Text("not ours"))},
                  {test::kBegin, test::TcpPacket(true, 1, 1, 0x18, test::Text("GET / HTTP/1.1"))}};
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_EQ(outcome.emptiness, "test.pcap: none of its 2 packets is of a card");
  EXPECT_THAT(outcome.heard.calls, IsEmpty());
}

// The end of the file may stand anywhere, and any byte may be another one.
TEST(Analysis, OfACutFileSaysSoAndTellsWhatWasBefore) {
  const Bytes file = PcapFile(FourCalls().wire);
  std::size_t calls = 0;
  for (std::size_t size = 24; size < file.size(); size += 97) {
    const SOutcome outcome = Analyse(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)));
    EXPECT_GE(outcome.heard.calls.size(), calls) << size;
    calls = outcome.heard.calls.size();
    if (!outcome.fault.empty()) {
      EXPECT_THAT(outcome.fault, HasSubstr("test.pcap: packet " + std::to_string(outcome.packets.packets + 1)));
    }
  }
  EXPECT_EQ(calls, 4U);
}

TEST(Analysis, SurvivesAnyByteChanged) {
  const Bytes file = PcapFile(FourCalls().wire);
  std::mt19937 random(1);
  for (int i = 0; i < 500; ++i) {
    Bytes changed = file;
    for (int j = 0; j < 8; ++j) {
      changed[24 + random() % (changed.size() - 24)] = static_cast<std::uint8_t>(random());
    }
    const SOutcome outcome = Analyse(changed);
    EXPECT_LT(outcome.heard.calls.size(), 40U);
  }
}

}  // namespace
}  // namespace trace
