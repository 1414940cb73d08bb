// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/board_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "conversation.h"

namespace trace {
namespace {

using test::ChannelElement;
using test::Join;
using test::kConnect;
using test::kSetup;
using test::Message;
using test::NumberElement;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr std::uint8_t kAlerting = 0x01;
constexpr std::uint8_t kNotify = 0x6E;
constexpr int kSlot = 7;
constexpr int kCell = 6;  // of that timeslot
constexpr Time kHour = 3600 * kSecond;

// One trunk of the board, with what it remembers of calls and levels.
class BoardView : public testing::Test {
 protected:
  // What a live board hears, in the order of the program.
  class CAll : public ITraceSink {
   public:
    void OnPacket(Time time) override { board.OnPacket(time); }
    void OnConnected(const SConnection& connection) override { board.OnConnected(connection); }
    void OnControl(const SConnection& connection, const SControl& message) override {
      board.OnControl(connection, message);
    }
    void OnDisconnected(const SConnection& connection, Time time) override { board.OnDisconnected(connection, time); }
    void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame& decoded,
                 EVerdict verdict) override {
      board.OnFrame(connection, frame, decoded, verdict);
    }
    void OnCallBegins(const SCall& call) override { calls.OnCallBegins(call); }
    void OnCallMessage(const SCall& call, const SSignal& signal) override {
      board.OnCallMessage(call, signal);
      calls.OnCallMessage(call, signal);
    }
    void OnCallEnds(const SCall& call) override {
      board.OnCallEnds(call);
      calls.OnCallEnds(call);
    }
    void OnAudio(const SAudio& audio) override {
      board.OnAudio(audio);
      levels.OnAudio(audio);
    }

    CBoard board;
    CLastCalls calls;
    CLevelMeter levels;
  };

  BoardView() {
    talk.Open();
    talk.SetUp(1);
    all.levels.Watch(test::kCard, 0, kSlot, 1);
  }
  void Connect() {
    talk.Signal(false, 0,
                Message(4, false, kSetup,
                        Join({ChannelElement(kSlot), NumberElement(0x6C, "0305551234"), NumberElement(0x70, "4567")})));
    talk.Signal(true, 0, Message(4, true, kAlerting));
    talk.Signal(true, 0, Message(4, true, kConnect));
  }
  // The card says something at the end, so that it is not lost.
  void Read() {
    talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
    CCaptureFile file(test::Stream(test::PcapFile(talk.wire)), "board.pcap");
    CAnalysis analysis(all, 0);
    for (CPacketReader reader(file); file.Next(captured);) {
      if (const std::optional<SPacket> packet = reader.Read(captured)) {
        analysis.TakePacket(*packet);
      }
    }
  }
  std::string Cells() const { return ViewOf(all.board, 0).rows.at(0).cells; }
  char Cell() const { return Cells().at(kCell); }
  std::vector<std::string> Details() const { return DetailsOf(all.board, all.calls, all.levels, "100001-1", kCell); }
  // A second of a period of eight samples on the timeslot.
  void Sound(bool fromLibrary, const std::array<std::uint8_t, 8>& period) {
    for (std::uint32_t number = 1; number <= 400; ++number) {
      Bytes packet(tool::AudioPacketBytes(1, 20), tool::kSilence);
      tool::WriteAudioHeader(packet.data(), number, 0);
      std::size_t sample = 0;
      for (std::size_t at = tool::kAudioHeaderBytes + kSlot; at < packet.size(); at += tool::kTimeslots) {
        packet[at] = period[sample++ % period.size()];
      }
      talk.wire.push_back(
          {talk.wire.back().time + kMillisecond, test::UdpPacket(fromLibrary, 40001, tool::kCardPort, packet)});
    }
  }

  test::CConversation talk;
  CAll all;
  SCaptured captured;
};

TEST_F(BoardView, ACallIsSilentWhenNoMessageOfItCameForAnHour) {
  Connect();
  talk.Wait(kHour - kSecond);
  Read();
  EXPECT_EQ(Cell(), 'C');
  EXPECT_EQ(ViewOf(all.board, all.board.Now() + 2 * kSecond).rows.at(0).cells.at(kCell), 'h');
}

TEST_F(BoardView, TheLetterOfASilentCallStandsAtItsChannelAlone) {
  Connect();
  talk.Wait(kHour + kSecond);
  Read();
  EXPECT_EQ(Cells(), "......h.......................");
}

TEST_F(BoardView, AMessageOfTheCallEndsTheSilence) {
  Connect();
  talk.Wait(kHour);
  talk.Signal(false, 0, Message(4, false, kNotify));
  talk.Wait(kHour - kSecond);
  Read();
  EXPECT_EQ(Cell(), 'C');
}

TEST_F(BoardView, OnlyConnectedCallsAreSilent) {
  talk.Signal(false, 0, Message(4, false, kSetup, ChannelElement(kSlot)));
  talk.Wait(2 * kHour);
  Read();
  EXPECT_EQ(Cell(), 'i');
}

// The next call of the channel begins to be silent by itself.
TEST_F(BoardView, ANewCallIsNotSilentForTheOneBefore) {
  talk.Call(3, kSlot, "0301", 16);
  talk.Wait(2 * kHour);
  Connect();
  Read();
  EXPECT_EQ(Cell(), 'C');
}

TEST_F(BoardView, ACardThatSaysNothingIsLost) {
  Connect();
  Read();
  const SBoardRow row = ViewOf(all.board, all.board.Now() + 4 * kSecond).rows.at(0);
  EXPECT_EQ(row.layer2, "lost");
  EXPECT_EQ(row.cells, std::string(30, 'x'));
}

TEST_F(BoardView, AChannelHasNumbersTimesAndMessagesOfItsCall) {
  Connect();
  Read();
  EXPECT_THAT(
      Details(),
      ElementsAre("100001-1 timeslot 7: connected", "  level from the line not heard yet, to the line not heard yet",
                  "  last causes: none seen", "Present call 1, to the library: 0305551234 -> 4567",
                  HasSubstr("  begun       2023-11-14T22:13:20."), EndsWith("(+0.0 s)"), EndsWith("(+0.0 s)"), "",
                  HasSubstr("     0.000 s  "), HasSubstr("ALERTING"), HasSubstr("CONNECT")));
}

TEST_F(BoardView, AChannelHasTheCausesOfItsCallsTheLastFirst) {
  talk.Call(1, kSlot, "0301", 17);
  talk.Call(2, kSlot, "0302", 16);
  talk.Call(3, kSlot + 1, "0303", 34);
  Read();
  EXPECT_THAT(Details(), Contains("  last causes: 16 NORMAL_CLEARING, 17 USER_BUSY"));
  EXPECT_THAT(Details(), Contains("Last call 2, to the library: 0302 -> 4567"));
  EXPECT_THAT(Details(), Contains("  cause 16 NORMAL_CLEARING by network"));
  EXPECT_THAT(DetailsOf(all.board, all.calls, all.levels, "100001-2", kCell), testing::IsEmpty());
}

// The digital milliwatt of ITU-T G.711, table 5, is 0 dBm0.
TEST_F(BoardView, AChannelHasItsLevelsEachWay) {
  Connect();
  Sound(false, {0x34, 0x21, 0x21, 0x34, 0xB4, 0xA1, 0xA1, 0xB4});
  talk.Wait(kSecond);
  Read();
  EXPECT_EQ(Details().at(1), "  level from the line 0.0 dBm0, to the line not heard yet");
}

TEST_F(BoardView, TheLevelIsThatOfTheChannelThatIsLookedAt) {
  all.levels.Watch(test::kCard, 0, kSlot + 1, 1);
  Connect();
  Sound(true, {0x34, 0x21, 0x21, 0x34, 0xB4, 0xA1, 0xA1, 0xB4});
  talk.Wait(kSecond);
  Read();
  EXPECT_EQ(all.levels.Text(EDirection::kToLibrary), "not heard yet");
  EXPECT_THAT(all.levels.Text(EDirection::kFromLibrary), testing::StartsWith("-6"));  // an idle line
}

}  // namespace
}  // namespace trace
