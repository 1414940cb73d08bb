// SPDX-License-Identifier: GPL-2.0-only
#include "stream/packet_sender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>

#include "audio_fakes.h"

namespace zelk {
namespace {

class PacketSender : public testing::Test {
 protected:
  PacketSender() {
    EXPECT_TRUE(rings.Create(2, 4));
    EXPECT_TRUE(sender.Create(rings));
  }

  SAudioControls controls;
  CCardRings rings;
  CFakeSink sink;
  CStopFlag stop;
  CPacketSender sender{controls, sink, stop};
};

TEST_F(PacketSender, PacketsCarryTheCounterAndTheLengthAskedFor) {
  controls.sendSequence = 0xFFFFFFFF;
  sender.Send(1448);
  sender.Send(600);
  ASSERT_EQ(sink.sent.size(), 2U);
  EXPECT_EQ(sink.sent[0].size(), 1448U);
  EXPECT_EQ(Packet(sink.sent[0].begin(), sink.sent[0].begin() + 8), (Packet{0xFF, 0x55, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0}));
  EXPECT_EQ(sink.sent[1].size(), 600U);
  EXPECT_EQ(Packet(sink.sent[1].begin(), sink.sent[1].begin() + 8), (Packet{0xFF, 0x55, 0, 0, 0, 0, 0, 0}));
}

TEST_F(PacketSender, BytesAfterTheLastWholeFrameAreZero) {
  sender.Send(1448);
  sender.Send(8 + 10 * 64 + 5);
  EXPECT_TRUE(std::all_of(sink.sent[1].begin() + 8, sink.sent[1].end() - 5, [](uint8_t b) { return b == 0x54; }));
  EXPECT_TRUE(std::all_of(sink.sent[1].end() - 5, sink.sent[1].end(), [](uint8_t b) { return b == 0; }));
}

TEST_F(PacketSender, AFailedSendIsNeitherRepeatedNorReported) {
  sink.result = -1;
  sender.Send(600);
  EXPECT_EQ(sink.sent.size(), 1U);
  EXPECT_TRUE(sink.waits.empty());
  EXPECT_TRUE(sender.TakeSent().isKept);  // it still counts as sent
}

TEST_F(PacketSender, OnlyAResultOfWouldBlockIsWaitedForAndSentOnceMore) {
  sink.result = 10035;  // WSAEWOULDBLOCK
  sender.Send(600);
  EXPECT_EQ(sink.sent.size(), 2U);
  EXPECT_EQ(sink.sent[0], sink.sent[1]);
  EXPECT_EQ(sink.waits, std::vector<int32_t>{10});
}

TEST_F(PacketSender, SentPacketsAreTakenOldestFirst) {
  sender.Send(600);
  sender.Send(700);
  const SSentPacket first = sender.TakeSent();
  EXPECT_EQ(first.bytes, 592U);
  EXPECT_TRUE(std::equal(sink.sent[0].begin() + 8, sink.sent[0].end(), first.samples));
  sender.ReturnSent(first);
  const SSentPacket second = sender.TakeSent();
  EXPECT_EQ(second.bytes, 692U);
  sender.ReturnSent(second);
}

TEST_F(PacketSender, WithNoneKeptTheTransmitBufferStandsIn) {
  const SSentPacket before = sender.TakeSent();
  EXPECT_FALSE(before.isKept);
  EXPECT_EQ(before.bytes, 0U);
  sender.Send(600);
  sender.ReturnSent(sender.TakeSent());
  const SSentPacket after = sender.TakeSent();
  EXPECT_FALSE(after.isKept);
  EXPECT_EQ(after.bytes, 592U);
  EXPECT_TRUE(std::equal(sink.sent[0].begin() + 8, sink.sent[0].end(), after.samples));
  sender.ReturnSent(after);
}

// A thread that a callback kept comes back from reporting a mark; another generation counts on by now.
TEST_F(PacketSender, AStopInsideTheHookEndsThePacketBeforeItGetsANumber) {
  class CStoppingHook : public CIdleHook {
   public:
    explicit CStoppingHook(CStopFlag& flag) : stop(flag) {}
    void OnCall(EMediaCall) override {
      ++calls;
      stop.Set();
    }
    CStopFlag& stop;
    int calls = 0;
  } hook(stop);
  controls.hook = &hook;
  for (const size_t position : {1U, 2U, 33U}) {
    rings.Transmit().NextFree(position).note->mark = true;
    rings.Transmit().PushReady(position);
  }
  sender.Send(8 + 16 * 64);
  while (!stop.IsSet())
    sender.Send(8 + 16 * 64);
  EXPECT_EQ(hook.calls, 1);
  EXPECT_EQ(sink.sent.size(), 10U);  // the first 160 frames
  EXPECT_EQ(controls.sendSequence, 10U);
  sender.Send(600);
  EXPECT_EQ(sink.sent.size(), 10U);
  EXPECT_EQ(controls.sendSequence, 10U);
}

TEST_F(PacketSender, TheLatestPacketsAreNotKeptOnce256Wait) {
  for (size_t i = 0; i < 300; ++i)
    sender.Send(600 + i);
  EXPECT_EQ(sink.sent.size(), 300U);
  for (size_t i = 0; i < 256; ++i) {
    const SSentPacket sent = sender.TakeSent();
    ASSERT_TRUE(sent.isKept);
    ASSERT_EQ(sent.bytes, 592 + i);
    sender.ReturnSent(sent);
  }
  const SSentPacket last = sender.TakeSent();
  EXPECT_FALSE(last.isKept);
  EXPECT_EQ(last.bytes, 592 + 299U);
}

// Sends and takings in a random order, against a plain queue.
TEST_F(PacketSender, KeptPacketsStayWholeWhateverTheOrderOfSendingAndTaking) {
  std::mt19937 random(1);
  std::deque<size_t> kept;
  size_t lengthOfLast = 0;
  for (int turn = 0; turn < 3000; ++turn) {
    if (random() % 100 < (turn % 1000 < 500 ? 60U : 40U)) {
      lengthOfLast = 600 + random() % 800;
      sender.Send(lengthOfLast);
      if (kept.size() < 256)
        kept.push_back(sink.sent.size() - 1);
    } else {
      const SSentPacket taken = sender.TakeSent();
      ASSERT_EQ(taken.isKept, !kept.empty());
      const Packet& wanted = sink.sent.at(kept.empty() ? sink.sent.size() - 1 : kept.front());
      ASSERT_TRUE(std::equal(wanted.begin() + 8, wanted.end(), taken.samples, taken.samples + taken.bytes));
      sender.ReturnSent(taken);
      if (!kept.empty())
        kept.pop_front();
    }
  }
}

}  // namespace
}  // namespace zelk
