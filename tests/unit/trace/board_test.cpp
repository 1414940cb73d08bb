// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/board.h"

#include <gtest/gtest.h>

#include "conversation.h"

namespace trace {
namespace {

using test::ChannelElement;
using test::Message;

TEST(ReplyWatch, PairsRepliesInTheirOrder) {
  CReplyWatch watch;
  watch.Restart(true);
  watch.OnPacket(1, 6, 0);  // the first one asks for hint - 4
  watch.OnPacket(2, 0, 10 * kMillisecond);
  watch.OnReply(0, 1 * kMillisecond);
  watch.OnReply(1, 2 * kMillisecond);
  watch.OnReply(2, 13 * kMillisecond);
  EXPECT_EQ(watch.Counts().packets, 2U);
  EXPECT_EQ(watch.Counts().replies, 3U);
  EXPECT_EQ(watch.Counts().surplus, 0U);
  EXPECT_NEAR(*watch.DelayMs(0.3), 1.0, 0.02);
  EXPECT_NEAR(*watch.DelayMs(1), 3.0, 0.02);
}

TEST(ReplyWatch, CountsWhatIsLostLateAndMissing) {
  CReplyWatch watch;
  watch.Restart(true);
  watch.OnPacket(1, 0, 0);
  watch.OnPacket(2, 0, 0);
  watch.OnPacket(4, 0, 0);  // waits for 3
  watch.OnPacket(3, 0, 0);
  watch.OnPacket(2, 0, 0);
  watch.OnPacket(9, 0, 0);  // a new beginning, which asks for no reply
  EXPECT_EQ(watch.Counts().lost, 4U);
  EXPECT_EQ(watch.Counts().repeated, 1U);
  watch.OnReply(0, 300 * kMillisecond);
  watch.OnReply(2, 301 * kMillisecond);
  watch.OnReply(3, 302 * kMillisecond);
  EXPECT_EQ(watch.Counts().late, 2U);
  EXPECT_EQ(watch.Counts().missing, 1U);
  EXPECT_EQ(watch.Counts().surplus, 1U);
}

TEST(ReplyWatch, APacketThatWaitedIsNotLost) {
  CReplyWatch watch;
  watch.Restart(true);
  watch.OnPacket(1, 0, 0);
  watch.OnPacket(3, 0, 0);
  watch.OnPacket(6, 0, 0);
  EXPECT_EQ(watch.Counts().lost, 3U);  // 2, 4 and 5
}

TEST(ReplyWatch, InTheMiddleTheFirstPacketIsOneAsAnyOther) {
  CReplyWatch watch;
  watch.Restart(false);
  EXPECT_FALSE(watch.DelayMs(0.5));
  watch.OnPacket(5000, 9, 0);
  watch.OnReply(77, kMillisecond);
  EXPECT_EQ(watch.Counts().lost, 0U);
  EXPECT_EQ(watch.Counts().surplus, 0U);
  EXPECT_NEAR(*watch.DelayMs(0.5), 1.0, 0.02);
}

class Board : public testing::Test {
 protected:
  Board() {
    talk.Open();
    talk.SetUp(2);
  }
  void Read(bool isOver = true) {
    CCaptureFile file(test::Stream(test::PcapFile(talk.wire)), "board.pcap");
    CAnalysis analysis(board, 0);
    analysis.Run(file);
    ASSERT_EQ(board.Cards().size(), 1U);
    ASSERT_EQ(Card().trunks.size(), 2U);
    EXPECT_EQ(Card().isConnected, isOver);
  }
  const SBoardCard& Card() const { return board.Cards().begin()->second; }
  const SBoardTrunk& Trunk(std::size_t index) const { return Card().trunks[index]; }
  void Audio(std::uint8_t sample) {
    Bytes packet(tool::AudioPacketBytes(2, 20), tool::kSilence);
    tool::WriteAudioHeader(packet.data(), replies++, 0);
    for (std::size_t at = tool::kAudioHeaderBytes + 7; at < packet.size(); at += 64) {
      packet[at] = sample;  // timeslot 7 of the first trunk
    }
    talk.wire.push_back({test::kBegin + kSecond, test::UdpPacket(true, 40001, tool::kCardPort, packet)});
  }

  test::CConversation talk;
  CBoard board;
  std::uint32_t replies = 0;
};

TEST_F(Board, ShowsChannelsAndLayers) {
  talk.Call(1, 4, "0301", 17);
  talk.Signal(false, 0, Message(2, false, 0x05, ChannelElement(5)));
  talk.Signal(true, 0, Message(3, false, 0x05, ChannelElement(6)));
  talk.Signal(false, 0, Message(4, false, 0x05, ChannelElement(7)));
  talk.Signal(true, 0, Message(4, true, 0x07));
  talk.Signal(false, 0, Message(5, false, 0x05, ChannelElement(8)));
  talk.Signal(false, 0, Message(5, false, 0x45, test::CauseElement(16)));
  talk.Send(false, tool::BuildHdlcError(1, 2));
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0, 4}));
  talk.Send(false, test::ToLibrary(1, {0x02, 0x01, 0x53}));  // DISC
  Read();
  EXPECT_EQ(Trunk(0).channels[4], EChannel::kIdle);
  EXPECT_EQ(Trunk(0).channels[5], EChannel::kRinging);
  EXPECT_EQ(Trunk(0).channels[6], EChannel::kDialled);
  EXPECT_EQ(Trunk(0).channels[7], EChannel::kConnected);
  EXPECT_EQ(Trunk(0).channels[8], EChannel::kClearing);
  EXPECT_EQ(Trunk(0).callOn[7], 4U);
  EXPECT_EQ(Trunk(0).causes.at(17), 1U);
  EXPECT_EQ(Trunk(0).isUp, true);
  EXPECT_EQ(Trunk(0).status, 0);
  EXPECT_EQ(Trunk(1).isUp, false);
  EXPECT_EQ(Trunk(1).status, 4);
  EXPECT_EQ(Trunk(1).hdlcErrors, 1U);
  EXPECT_EQ(Trunk(1).channels[5], EChannel::kDown);
  EXPECT_EQ(Card().serial, test::kSerial);
}

TEST_F(Board, CountsBlocksWithoutSoundOfConnectedCalls) {
  talk.Signal(false, 0, Message(4, false, 0x05, ChannelElement(7)));
  for (int i = 0; i < 20; ++i) {
    Audio(0x54);  // nobody has answered yet
  }
  talk.Signal(true, 0, Message(4, true, 0x07));
  for (int i = 0; i < 16; ++i) {
    Audio(0x54);
  }
  Audio(0x55);
  for (int i = 0; i < 7; ++i) {
    Audio(0x54);
  }
  Read();
  EXPECT_EQ(Trunk(0).starvedBlocks, 2U);
  EXPECT_EQ(Trunk(1).starvedBlocks, 0U);
}

TEST_F(Board, OfALostCardIsDown) {
  talk.Signal(false, 0, Message(2, false, 0x05, ChannelElement(5)));
  talk.Close();
  Read(false);
  EXPECT_EQ(Trunk(0).channels[5], EChannel::kDown);
  EXPECT_EQ(Trunk(0).callOn[5], 0U);
  EXPECT_EQ(Trunk(0).calls, 1U);
}

}  // namespace
}  // namespace trace
