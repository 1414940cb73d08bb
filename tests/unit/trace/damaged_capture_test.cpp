// SPDX-License-Identifier: GPL-2.0-only

// Captures that lack something or have it twice: the calls are those of the whole one, or it is said what is missing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "conversation.h"
#include "damage.h"
#include "trace/core/analysis.h"

namespace trace {
namespace {

using test::Analyse;
using test::CConversation;
using test::FourCalls;
using test::InOrderOfTime;
using test::Joined;
using test::kConnect;
using test::kDisconnect;
using test::kFourCalls;
using test::kSetup;
using test::kTcpHeaders;
using test::Part;
using test::PcapFile;
using test::PcapngFile;
using test::PlaceOf;
using test::SFrameOnWire;
using test::Short;
using test::SOutcome;
using test::Wire;
using test::Without;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const SCall& CallOf(const SOutcome& outcome, const std::string& calling) {
  static const SCall none;
  const auto found = std::find_if(outcome.heard.calls.begin(), outcome.heard.calls.end(),
                                  [&](const SCall& call) { return call.calling == calling; });
  EXPECT_NE(found, outcome.heard.calls.end()) << calling;
  return found == outcome.heard.calls.end() ? none : *found;
}

Bytes First(const Bytes& bytes, std::size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

Wire First(const Wire& wire, std::size_t count) {
  return {wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(count)};
}

// ---- the file ----

TEST(DamagedCapture, CutInAPacket) {
  const Wire wire = FourCalls().wire;
  const std::size_t cut = PlaceOf(wire, kConnect, 3, true);
  const Bytes file = First(PcapFile(wire), PcapFile(First(wire, cut)).size() + 16 + 30);
  const SOutcome outcome = Analyse(file);
  EXPECT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{"0301 1 16", "0302 2 17", "0303 3 -1"}));
  EXPECT_EQ(CallOf(outcome, "0303").how, ECallEnd::kOpen);
  EXPECT_THAT(outcome.fault, HasSubstr("packet " + std::to_string(cut + 1) + " cannot be read"));
  EXPECT_THAT(outcome.notes, IsEmpty());
}

TEST(DamagedCapture, CutInABlock) {
  const Wire wire = FourCalls().wire;
  const Bytes whole = PcapngFile(wire);
  EXPECT_EQ(Short(Analyse(whole).heard.calls), kFourCalls);
  const std::size_t place = PlaceOf(wire, kConnect, 3, true);
  const std::size_t block = PcapngFile(First(wire, place)).size();
  const std::size_t size = PcapngFile(First(wire, place + 1)).size() - block;
  // In its type, its length, its packet, and in the length at its end.
  for (const std::size_t inBlock : {std::size_t{2}, std::size_t{6}, std::size_t{40}, size - 2}) {
    const SOutcome outcome = Analyse(First(whole, block + inBlock));
    EXPECT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{"0301 1 16", "0302 2 17", "0303 3 -1"})) << inBlock;
    EXPECT_THAT(outcome.fault, HasSubstr("packet " + std::to_string(place + 1) + " cannot be read")) << inBlock;
  }
}

TEST(DamagedCapture, WithFramesCutByASnapLength) {
  constexpr std::size_t kSnapLength = 80;
  Wire wire = FourCalls().wire;
  unsigned cut = 0;
  for (SFrameOnWire& frame : wire) {
    cut += frame.bytes.size() > kSnapLength ? 1 : 0;
    frame.bytes.resize(std::min(frame.bytes.size(), kSnapLength));
  }
  ASSERT_EQ(cut, 4U);  // the SETUPs
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_THAT(outcome.notes, Contains("4 packets were captured without their ends"));
  EXPECT_THAT(outcome.notes, Contains("4 gaps in the control connections"));
  ASSERT_EQ(outcome.heard.calls.size(), 4U);
  for (const SCall& call : outcome.heard.calls) {
    EXPECT_TRUE(call.isBegunBefore);  // its SETUP is not in the capture
    EXPECT_EQ(call.how, ECallEnd::kReleased);
  }
}

// ---- what is missing ----

TEST(DamagedCapture, WithoutItsFirstHalf) {
  const Wire wire = FourCalls().wire;
  const auto half = static_cast<std::ptrdiff_t>(PlaceOf(wire, kConnect, 2, true));
  const SOutcome outcome = Analyse(PcapFile(Wire(wire.begin() + half, wire.end())));
  EXPECT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{" -1 17", "0303 3 31", "0304 4 127"}));
  EXPECT_TRUE(CallOf(outcome, "").isBegunBefore);
  EXPECT_FALSE(CallOf(outcome, "0303").isBegunBefore);
  EXPECT_THAT(outcome.notes, Contains("1 control connections began before the capture"));
}

TEST(DamagedCapture, WithoutASegment) {
  const Wire wire = FourCalls().wire;
  const SOutcome outcome = Analyse(PcapFile(Without(wire, {PlaceOf(wire, kDisconnect, 2, false)})));
  EXPECT_EQ(Short(outcome.heard.calls),
            (std::vector<std::string>{"0301 1 16", "0302 2 -1", "0303 3 31", "0304 4 127"}));
  EXPECT_TRUE(CallOf(outcome, "0302").isPassedGap);
  EXPECT_FALSE(CallOf(outcome, "0301").isPassedGap);
  EXPECT_FALSE(CallOf(outcome, "0304").isPassedGap);
  EXPECT_THAT(outcome.notes, Contains("1 gaps in the control connections"));
  EXPECT_THAT(outcome.notes, Contains("1 D-channel frames are not in the capture"));
}

TEST(DamagedCapture, WithoutSeveralSegments) {
  const Wire wire = FourCalls().wire;
  const std::vector<std::size_t> lost{PlaceOf(wire, kSetup, 1, false), PlaceOf(wire, kConnect, 2, true),
                                      PlaceOf(wire, kDisconnect, 4, false)};
  const SOutcome outcome = Analyse(PcapFile(Without(wire, lost)));
  EXPECT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{" 1 16", "0302 2 17", "0303 3 31", "0304 4 -1"}));
  EXPECT_TRUE(CallOf(outcome, "").isBegunBefore);
  EXPECT_TRUE(CallOf(outcome, "0302").isPassedGap);
  EXPECT_EQ(CallOf(outcome, "0302").connected, 0);
  EXPECT_TRUE(CallOf(outcome, "0304").isPassedGap);
  EXPECT_FALSE(CallOf(outcome, "0303").isPassedGap);
  EXPECT_THAT(outcome.notes, Contains("3 gaps in the control connections"));
}

TEST(DamagedCapture, OfOneDirectionAlone) {
  for (const bool isOfLibrary : {false, true}) {
    Wire wire;
    for (const SFrameOnWire& frame : FourCalls().wire) {
      const bool isFromLibrary = frame.bytes[28] == 0;  // in the sender's address
      if (isFromLibrary == isOfLibrary) {
        wire.push_back(frame);
      }
    }
    ASSERT_LT(wire.size(), FourCalls().wire.size());
    const SOutcome outcome = Analyse(PcapFile(wire));
    EXPECT_EQ(outcome.heard.calls.size(), 4U);
    EXPECT_THAT(outcome.notes, Contains("1 control connections are captured in one direction alone"));
  }
  EXPECT_THAT(Analyse(PcapFile(FourCalls().wire)).notes, IsEmpty());
}

// ---- what comes twice, or at another time ----

TEST(DamagedCapture, WithReorderedSegments) {
  Wire wire = FourCalls().wire;
  for (std::size_t i = 6; i + 4 < wire.size(); i += 4) {
    if (wire[i + 3].time - wire[i].time < kSecond / 10) {
      std::reverse(wire.begin() + static_cast<std::ptrdiff_t>(i), wire.begin() + static_cast<std::ptrdiff_t>(i + 4));
    }
  }
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_EQ(Short(outcome.heard.calls), kFourCalls);
  EXPECT_THAT(outcome.notes, ElementsAre(HasSubstr("TCP segments came before one of their predecessors")));
}

TEST(DamagedCapture, WithRetransmittedSegments) {
  Wire wire = FourCalls().wire;
  const std::size_t count = wire.size();
  for (std::size_t i = 6; i < count; i += 3) {
    wire.push_back({wire[i].time + 200 * kMillisecond + 1, wire[i].bytes});
  }
  InOrderOfTime(wire);
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_EQ(Short(outcome.heard.calls), kFourCalls);
  EXPECT_THAT(outcome.notes, ElementsAre(HasSubstr("TCP segments came once more")));
}

// What is sent again may be cut elsewhere than it was at first, and only that may be in the capture.
TEST(DamagedCapture, WithOverlapsOfDifferentLengths) {
  Wire wire = FourCalls().wire;
  const std::size_t setup = PlaceOf(wire, kSetup, 2, false);
  const std::size_t disconnect = PlaceOf(wire, kDisconnect, 2, false);
  const Bytes whole = wire[setup].bytes;
  const std::size_t size = whole.size() - kTcpHeaders;
  const Time time = wire[setup].time;
  const Bytes last = wire[disconnect].bytes;
  const std::size_t lastSize = last.size() - kTcpHeaders;
  const Time lastTime = wire[disconnect].time;
  wire = Without(wire, {setup, disconnect});
  wire.push_back({time, Part(whole, 0, 20)});
  wire.push_back({time + 1000, Part(whole, 15, 10)});
  wire.push_back({time + 2000, Part(whole, 30, size - 30)});
  wire.push_back({time + 3000, Part(whole, 10, size - 12)});
  wire.push_back({time + 4000, Part(whole, 0, 5)});
  wire.push_back({lastTime, Part(last, lastSize - 3, 3)});
  wire.push_back({lastTime + 1000, Part(last, 0, lastSize)});
  wire.push_back({lastTime + 2000, Joined(Part(last, lastSize - 8, 4), Part(last, lastSize - 4, 4))});
  InOrderOfTime(wire);
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_EQ(Short(outcome.heard.calls), kFourCalls);
  EXPECT_EQ(outcome.traffic.tcp.gaps, 0U);
  EXPECT_EQ(outcome.traffic.tcp.repeated, 3U);
}

// Both ports of a switch are mirrored, and one of them a little later than the other.
TEST(DamagedCapture, WithEveryPacketTwice) {
  for (const Time later : {Time{0}, 5 * kMillisecond, 50 * kMillisecond}) {
    CConversation talk = FourCalls();
    talk.Close();
    Wire wire = talk.wire;
    const std::size_t count = wire.size();
    for (std::size_t i = 0; i < count; ++i) {
      wire.push_back({wire[i].time + later, wire[i].bytes});
    }
    InOrderOfTime(wire);
    const SOutcome outcome = Analyse(PcapFile(wire));
    EXPECT_EQ(Short(outcome.heard.calls), kFourCalls) << later;
    EXPECT_EQ(outcome.heard.connections.size(), 1U) << later;
    EXPECT_THAT(outcome.notes, Contains(HasSubstr("TCP segments came once more"))) << later;
    EXPECT_THAT(outcome.notes, Not(Contains(HasSubstr("gap")))) << later;
  }
}

TEST(DamagedCapture, WhoseClockIsSetBack) {
  Wire wire = FourCalls().wire;
  const std::size_t place = PlaceOf(wire, kConnect, 3, true);
  for (std::size_t i = place; i < wire.size(); ++i) {
    wire[i].time -= 3600 * kSecond;
  }
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_EQ(Short(outcome.heard.calls), kFourCalls);
  EXPECT_THAT(outcome.notes,
              ElementsAre("1 times the clock of the capture was set back; durations across that are wrong"));
  // What is missing behind that is told as elsewhere.
  const SOutcome lacking = Analyse(PcapFile(Without(wire, {PlaceOf(wire, kDisconnect, 3, false)})));
  EXPECT_TRUE(CallOf(lacking, "0303").isPassedGap);
  EXPECT_FALSE(CallOf(lacking, "0304").isPassedGap);
}

// ---- connections ----

// A call that is under way, and no end of its connection.
CConversation WithACall(const std::string& calling, std::uint16_t port, std::uint32_t card, Time begin,
                        std::uint32_t serial = test::kSerial) {
  CConversation talk(port, card, serial);
  talk.Wait(begin);
  talk.Open();
  talk.SetUp(1);
  talk.Signal(
      false, 0,
      test::Message(1, false, kSetup, test::Join({test::ChannelElement(7), test::NumberElement(0x6C, calling)})));
  talk.Signal(true, 0, test::Message(1, true, kConnect));
  return talk;
}

void Follow(Wire& wire, const Wire& more) {
  wire.insert(wire.end(), more.begin(), more.end());
  InOrderOfTime(wire);
}

TEST(DamagedCapture, OfACardThatTakesAnotherAddress) {
  Wire wire = WithACall("0301", test::kLibraryPort, test::kCard, 0).wire;
  CConversation moved(test::kLibraryPort + 1, test::kCard + 8);
  moved.Wait(10 * kSecond);
  moved.Open();
  moved.SetUp(1);
  moved.Call(1, 7, "0302", 17);
  Follow(wire, moved.wire);
  const SOutcome outcome = Analyse(PcapFile(wire));
  EXPECT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{"0301 7 -1", "0302 7 17"}));
  EXPECT_EQ(CallOf(outcome, "0301").how, ECallEnd::kConnectionLost);
  EXPECT_EQ(CallOf(outcome, "0302").how, ECallEnd::kReleased);
  EXPECT_EQ(CallOf(outcome, "0301").serial, CallOf(outcome, "0302").serial);
}

TEST(DamagedCapture, OfAConnectionThatIsResetAndOpenedAnew) {
  CConversation talk = WithACall("0301", test::kLibraryPort, test::kCard, 0);
  talk.Reset();
  talk.Wait(kSecond);
  talk.Open();  // from the same port
  talk.SetUp(1);
  talk.Call(1, 7, "0302", 16);
  const SOutcome outcome = Analyse(PcapFile(talk.wire));
  EXPECT_EQ(Short(outcome.heard.calls), (std::vector<std::string>{"0301 7 -1", "0302 7 16"}));
  EXPECT_EQ(CallOf(outcome, "0301").how, ECallEnd::kConnectionLost);
  EXPECT_THAT(outcome.notes, IsEmpty());
}

// One of two cards is not heard of any more: its call is open, and the other's calls are what they were.
TEST(DamagedCapture, OfTwoCardsOfWhichOneIsLost) {
  Wire wire = WithACall("0301", test::kLibraryPort + 1, test::kCard + 1, 0, test::kSerial + 1).wire;
  Follow(wire, FourCalls().wire);
  const SOutcome outcome = Analyse(PcapFile(wire));
  ASSERT_EQ(outcome.heard.calls.size(), 5U);
  for (const SCall& call : outcome.heard.calls) {
    const bool isOfLost = call.serial == test::kSerial + 1;
    EXPECT_EQ(call.how, isOfLost ? ECallEnd::kOpen : ECallEnd::kReleased) << call.calling;
  }
  EXPECT_EQ(outcome.heard.connections.size(), 2U);
  EXPECT_THAT(outcome.notes, IsEmpty());
}

}  // namespace
}  // namespace trace
