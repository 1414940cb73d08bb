// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "audio_stream_fixture.h"
#include "platform/clock.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

using namespace audiotest;

class AudioStream : public CAudioStreamTest {
 protected:
  bool opened = false;
};

TEST_F(AudioStream, AFirstPacketWithABacklogOf7GetsThreeReplies) {
  Open();
  card.Send(port, MakePacket(1, 7, 584 + 32));
  for (uint32_t i = 0; i < 3; ++i) {
    const Packet reply = card.Receive();
    ASSERT_EQ(reply.size(), 616U);
    EXPECT_EQ(SequenceOf(reply), i);
    EXPECT_EQ(reply[0], 0xFF);
    EXPECT_EQ(reply[1], 0x55);
    EXPECT_EQ(reply[6], 0);
    EXPECT_EQ(reply[7], 0);
    EXPECT_TRUE(std::all_of(reply.begin() + kHeader, reply.end(), [](uint8_t byte) { return byte == 0x54; }));
  }
  EXPECT_EQ(SequenceOf(Exchange(MakePacket(2, 0, 616))), 3U);
  EXPECT_TRUE(card.NothingWaits());
  EXPECT_TRUE(notice.Lines().empty());
  Close();
}

TEST_F(AudioStream, PacketsOfAWrongSizeMagicOrSenderChangeNothing) {
  Open();
  card.Send(port, MakePacket(1, 4, 648));
  card.Send(port, MakePacket(9, 99, 583));
  card.Send(port, MakePacket(9, 99, 1449));
  card.Send(port, MakePacket(9, 99, 1600));
  card.Send(port, {});
  card.Send(port, Packet(1, 0xFF));
  Packet swapped = MakePacket(9, 99, 648);
  std::swap(swapped[0], swapped[1]);
  card.Send(port, swapped);
  CTestCard stranger("127.0.0.10", kCardPort);
  stranger.Send(port, MakePacket(9, 99, 648));
  EXPECT_EQ(SequenceOf(Exchange(MakePacket(2, 0, 648))), 0U);
  EXPECT_TRUE(card.NothingWaits());
  EXPECT_TRUE(stranger.NothingWaits());
  EXPECT_TRUE(notice.Lines().empty());
  Close();
}

TEST_F(AudioStream, APacketFromAnyPortIsAnsweredToTheAudioPort) {
  Open();
  CTestCard otherPort(kCardAddress, 0);
  otherPort.Send(port, MakePacket(1, 5, 648));
  EXPECT_EQ(card.Receive().size(), 648U);
  EXPECT_TRUE(otherPort.NothingWaits());
  Close();
}

TEST_F(AudioStream, TheShortestAndTheLongestPacketAreTakenWithAnyTrunkCount) {
  for (uint32_t trunks = 1; trunks <= 8; ++trunks) {
    Open(trunks);
    stream.SetHook(&hook);
    uint32_t sequence = 0;
    for (const size_t length : {size_t{584}, size_t{1448}, LengthOf(trunks, 2)}) {
      if (length < 584)
        continue;
      card.Send(port, MakePacket(++sequence, 5, length));
      EXPECT_EQ(card.Receive().size(), length) << trunks;
    }
    EXPECT_TRUE(card.NothingWaits());
    Close();
    stream.SetHook(nullptr);
  }
}

TEST_F(AudioStream, LostAndOldPacketsAreReportedInTheirWords) {
  Open();
  card.Send(port, MakePacket(5, 4, 648));
  card.Send(port, MakePacket(5, 4, 648));
  EXPECT_EQ(SequenceOf(Exchange(MakePacket(6, 4, 648))), 0U);
  const std::vector<std::string> lines = notice.Lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "Packet loss?, so sequence reset, expected 1 got 5, processed.");
  EXPECT_EQ(lines[1], "Old/Duplicate Packet -> 5, ignored.");
  Close();
}

TEST_F(AudioStream, WhatTheHookPlaysGoesOutAfterTheFirst160IdleBytes) {
  stream.SetHook(&hook);
  Open(2, 4);
  ASSERT_TRUE(hook.Await([](CTestHook& h) { return h.queries[1][31] >= 4; }));
  const size_t length = LengthOf(2, 16);
  card.Send(port, MakePacket(1, 5, length));
  for (uint32_t packet = 0; packet < 20; ++packet) {
    const Packet reply = packet == 0 ? card.Receive() : Exchange(MakePacket(packet + 1, 5, length));
    ASSERT_EQ(reply.size(), length);
    for (size_t i = 0; i < 16 * 64; ++i)
      ASSERT_EQ(reply[kHeader + i], packet < 10 ? 0x54 : i % 64) << packet << " " << i;
  }
  Close();
}

TEST_F(AudioStream, ReceivedAudioComesInWholeBlocksAfterTheFirst160Bytes) {
  stream.SetHook(&hook);
  Open(1, 8);
  constexpr size_t kFrames = 40;
  for (uint32_t packet = 0; packet < 13;
       ++packet)  // one more than three blocks: a full block leaves with the next byte
    Exchange(MakePacket(packet + 1, packet == 0 ? 5 : 0, LengthOf(1, kFrames), static_cast<uint8_t>(packet)));
  ASSERT_TRUE(hook.Await([](CTestHook& h) { return h.recorded.size() >= 2; }));
  Close();
  ASSERT_EQ(hook.recorded.size(), 2U);
  for (size_t block = 0; block < 2; ++block) {
    ASSERT_EQ(hook.recorded[block].size(), 160U);
    for (size_t i = 0; i < 160; ++i)
      ASSERT_EQ(hook.recorded[block][i], 4 + 4 * block + i / kFrames);
  }
}

TEST_F(AudioStream, TheMarkIsReportedWhenItsBlockIsTakenForSending) {
  hook.markedBlock = 2;
  stream.SetHook(&hook);
  Open(1, 4);
  ASSERT_TRUE(hook.Await([](CTestHook& h) { return h.queries[0][31] >= 4; }));
  for (uint32_t packet = 0; packet < 8; ++packet)  // 8 x 40 frames: idle block and first block
    Exchange(MakePacket(packet + 1, packet == 0 ? 5 : 0, LengthOf(1, 40)));
  EXPECT_TRUE(hook.Await([](CTestHook& h) { return h.marksSent == 0; }));
  Exchange(MakePacket(9, 0, LengthOf(1, 40)));
  EXPECT_TRUE(hook.Await([](CTestHook& h) { return h.marksSent == 1; }));
  Close();
}

TEST_F(AudioStream, MarksThatWereSentComeOnOneThreadAllElseOnAnother) {
  hook.markedBlock = 1;
  stream.SetHook(&hook);
  Open(2, 4);
  ASSERT_TRUE(hook.Await([](CTestHook& h) { return h.queries[1][31] >= 4; }));
  for (uint32_t packet = 0; packet < 60; ++packet)  // 6 blocks each way
    Exchange(MakePacket(packet + 1, packet == 0 ? 5 : 0, LengthOf(2, 16)));
  ASSERT_TRUE(hook.Await([](CTestHook& h) { return h.marksSent == 2 && !h.recorded.empty(); }));
  Close();
  EXPECT_EQ(hook.markThreads.size(), 1U);
  EXPECT_EQ(hook.otherThreads.size(), 1U);
  EXPECT_NE(hook.markThreads, hook.otherThreads);
  EXPECT_FALSE(hook.markThreads.contains(std::this_thread::get_id()));
  EXPECT_FALSE(hook.otherThreads.contains(std::this_thread::get_id()));
}

TEST_F(AudioStream, AFlushSilencesWhatWaitsFromTheVeryNextPacket) {
  stream.SetHook(&hook);
  Open(1, 2);
  ASSERT_TRUE(hook.Await([](CTestHook& h) { return h.queries[0][31] >= 2; }));
  uint32_t sequence = 0;
  const auto next = [&] {
    const Packet reply = Exchange(MakePacket(sequence + 1, sequence == 0 ? 5 : 0, LengthOf(1, 20)));
    ++sequence;
    return reply;
  };
  for (int i = 0; i < 9; ++i)
    next();  // 8 of idle bytes, one of the first block
  const auto expect = [](const Packet& reply, uint8_t byte) {
    ASSERT_EQ(reply.size(), LengthOf(1, 20));
    for (size_t frame = 0; frame < 20; ++frame) {
      ASSERT_EQ(reply[kHeader + frame * 32 + 4], 4);
      ASSERT_EQ(reply[kHeader + frame * 32 + 5], byte);
      ASSERT_EQ(reply[kHeader + frame * 32 + 6], 6);
    }
  };
  stream.SilenceTransmit(0, 5);
  for (int i = 0; i < 7 + 8; ++i)  // the rest of the block being sent, and the one that waited
    expect(next(), 0x54);
  // Then the block that was filled after the flush, as soon as the pacer has put it into the ring.
  const auto ofTimeslot5 = [](const Packet& reply) {
    Packet column;
    for (size_t frame = 0; frame < 20; ++frame)
      column.push_back(reply.at(kHeader + frame * 32 + 5));
    return column;
  };
  Packet heard = ofTimeslot5(next());
  for (const uint32_t start = TickMs(); heard == Packet(20, 0x54) && TickMs() - start < kPatienceMs;)
    heard = ofTimeslot5(next());
  EXPECT_EQ(heard, Packet(20, 5));
  Close();
}

TEST_F(AudioStream, WithoutBlocksTheLineCarriesIdleBytesAndNothingIsRecorded) {
  stream.SetHook(&hook);
  Open(1, 0);
  for (uint32_t packet = 0; packet < 12; ++packet) {
    const Packet reply = Exchange(MakePacket(packet + 1, packet == 0 ? 5 : 0, LengthOf(1, 40)));
    ASSERT_EQ(reply.size(), LengthOf(1, 40));
    EXPECT_TRUE(std::all_of(reply.begin() + kHeader, reply.end(), [](uint8_t byte) { return byte == 0x54; }));
  }
  Close();
  EXPECT_EQ(hook.calls, 0);
}

TEST_F(AudioStream, ClosingTheSocketReleasesTheReceiveThreadAtOnce) {
  Open();
  Exchange(MakePacket(1, 5, 648));  // the thread runs, and waits for the next packet
  const uint32_t before = TickMs();
  Close();
  EXPECT_LT(TickMs() - before, 100U);
}

TEST_F(AudioStream, TheSendCounterGoesOnAcrossGenerations) {
  uint32_t sent = 0;
  bool lastUnseen = false;
  for (int cycle = 0; cycle < 20; ++cycle) {
    Open(static_cast<uint32_t>(cycle % 8 + 1), 4);
    stream.SetHook(cycle % 2 == 0 ? &hook : nullptr);
    card.Send(port, MakePacket(1, 6, 1448));
    const uint32_t first = SequenceOf(card.Receive());
    // A reply that the closing socket did not accept has its number all the same.
    if (lastUnseen && first == sent + 1)
      sent = first;
    EXPECT_EQ(first, sent++);
    EXPECT_EQ(SequenceOf(card.Receive()), sent++);
    for (uint32_t packet = 2; packet < 12; ++packet)
      EXPECT_EQ(SequenceOf(Exchange(MakePacket(packet, 9, 1448))), sent++);
    card.Send(port, MakePacket(12, 0, 1448));  // still under way while it closes
    Close();
    // The last packet may or may not have been answered.
    lastUnseen = card.NothingWaits();
    if (!lastUnseen) {
      EXPECT_EQ(SequenceOf(card.Receive()), sent++);
    }
  }
  EXPECT_TRUE(notice.Lines().empty());
}

TEST_F(AudioStream, AWrongTrunkCountOrAddressFailsThisGenerationOnly) {
  EXPECT_FALSE(stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 0, 32));
  EXPECT_FALSE(stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 9, 32));
  EXPECT_FALSE(stream.OpenSocket(Address("192.0.2.1"), Address(kCardAddress), 1, 32));
  EXPECT_EQ(stream.LocalPort(), 0);
  EXPECT_FALSE(stream.StartPacer());
  EXPECT_FALSE(stream.StartReceiver());
  Close();
  Open();
  EXPECT_EQ(Exchange(MakePacket(1, 5, 648)).size(), 648U);
  Close();
}

TEST_F(AudioStream, AnOpenThatFailsLeavesNothingOfTheGenerationBefore) {
  ASSERT_TRUE(stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 1, 2));
  EXPECT_NE(stream.LocalPort(), 0);
  EXPECT_FALSE(stream.OpenSocket(Address("192.0.2.1"), Address(kCardAddress), 1, 2));
  EXPECT_EQ(stream.LocalPort(), 0);
}

TEST_F(AudioStream, EachFailingAllocationOfAnOpenFailsIt) {
  bool isOpen = false;
  const uint32_t failures = support::ForEachFailingAllocation(
      [&] { isOpen = stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 1, 2); },
      [&](bool failed) {
        EXPECT_EQ(isOpen, !failed);
        EXPECT_EQ(stream.LocalPort() != 0, isOpen);
      });
  EXPECT_GT(failures, 5U);
}

TEST_F(AudioStream, AThreadWithoutMemoryForItsRecordIsNotStarted) {
  ASSERT_TRUE(stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 1, 2));
  support::FailAllocation(1);
  EXPECT_FALSE(stream.StartPacer());
  EXPECT_TRUE(support::AllocationFailed());
  support::FailAllocation(0);
  EXPECT_TRUE(stream.StartPacer());
  Close();
}

TEST_F(AudioStream, FlushesAreCountedForEachPositionThatACardCanHave) {
  EXPECT_EQ(*stream.FlushCounter(7, 31), 0U);
  stream.SilenceTransmit(7, 31);
  stream.SilenceTransmit(7, 31);
  EXPECT_EQ(*stream.FlushCounter(7, 31), 2U);
  EXPECT_EQ(*stream.FlushCounter(7, 30), 0U);
  stream.SilenceTransmit(6, 32);  // not timeslot 0 of the next trunk
  EXPECT_EQ(*stream.FlushCounter(7, 0), 0U);
  EXPECT_EQ(stream.FlushCounter(6, 32), nullptr);
  EXPECT_EQ(stream.FlushCounter(8, 0), nullptr);
}

TEST_F(AudioStream, WithoutMemoryAStepFailsAndTheNextGenerationSucceeds) {
  const auto openAndClose = [&] {
    stream.ResetChannels(SDtmfSettings());
    const bool open = stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 1, 2);
    opened = open && stream.StartPacer() && stream.StartReceiver();
    stream.ConfigureEcho(0, 32);
    stream.ConfigureEcho(0, 32);
    Close();
  };
  const uint32_t failures = support::ForEachFailingAllocation(openAndClose, [&](bool failed) {
    // Only an echo canceller's loss is not the generation's.
    EXPECT_TRUE(opened || failed);
  });
  EXPECT_GT(failures, 64U);  // two sets of 32 cancellers, and what stands before them
  EXPECT_TRUE(opened);
}

TEST_F(AudioStream, CallsOnAClosedStreamAndOutOfRangeAreHarmless) {
  Close();
  Close();
  stream.SilenceTransmit(8, 0);
  stream.SilenceTransmit(0, 32);
  stream.SilenceTransmit(0xFFFFFFFF, 0xFFFFFFFF);
  stream.SetEchoSwitch(8, true);
  EXPECT_FALSE(stream.EchoSwitch(8));
  stream.SetEchoSwitch(7, true);
  EXPECT_TRUE(stream.EchoSwitch(7));
  stream.ConfigureEcho(0, 32);
  Open();
  stream.ConfigureEcho(8, 32);
  Close();
}

}  // namespace
}  // namespace zelk
