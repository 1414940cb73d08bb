// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_receiver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "audio_fakes.h"
#include "literal_audio.h"
#include "native_cpu_time.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "stream/audio_pacer.h"
#include "support/addresses.h"
#include "support/eventually.h"

namespace zelk {
namespace {

using Events = std::vector<std::string>;

std::string Text(const uint8_t* bytes, size_t count) {
  return {bytes, bytes + count};
}

// The application's side of both forms: what it plays depends only on how often the position was asked. Now and then it
// stops a position while it has a block, mostly its own, and goes on writing.
struct SApplication {
  void Play(unsigned position, uint8_t* block) {
    const unsigned fill = fills[position]++;
    std::mt19937 random(position * 1000 + fill);
    const size_t goesOnAt = random() % 161;
    Write(random, block, 0, 160);
    if (fill % 4 == 1) {
      stop(fill % 8 == 1 ? position : position ^ 1);
      Write(random, block, goesOnAt, 160);
    }
  }
  static void Write(std::mt19937& random, uint8_t* block, size_t from, size_t to) {
    for (size_t i = from; i < to; ++i)
      block[i] = static_cast<uint8_t>(random());
  }
  bool Mark(unsigned position) { return (fills[position] + position) % 3 == 0; }
  std::function<void(unsigned position)> stop;
  std::map<unsigned, unsigned> fills;
};

// The library's form, driven by hand in one thread.
class CReceiverUnderTest : private IMediaHook, private IAudioNotice, private IPacketSink {
 public:
  CReceiverUnderTest(uint32_t trunks, uint32_t blocks)
      : sender(controls, *this, stop), receiver(controls, *this, echo, sender, stop), pacer(controls, rings) {
    EXPECT_TRUE(rings.Create(trunks, blocks));
    EXPECT_TRUE(sender.Create(rings));
    EXPECT_TRUE(receiver.Create(rings));
    application.stop = [this](unsigned position) { Flush(position); };
    controls.hook = this;
  }

  void Arrive(Packet packet) { receiver.OnPacket(packet.data(), packet.size()); }
  void Pass() { pacer.Pass(stop); }
  void Flush(unsigned position) { controls.Flush(position); }
  void EchoOn(unsigned trunk, int tailMs) { echo.Configure(trunk, tailMs); }
  void EchoSwitch(unsigned trunk, bool on) { controls.echoSwitch[trunk] = on; }
  Events Take() { return std::exchange(events, {}); }

 private:
  void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) override {
    application.Play(trunk * 32 + timeslot, fill.data);
    fill.KeepQueued();
  }
  bool EndsPlay(uint32_t trunk, uint32_t timeslot) override { return application.Mark(trunk * 32 + timeslot); }
  void OnMarkSent(uint32_t trunk, uint32_t timeslot) override {
    events.push_back("mark " + std::to_string(trunk * 32 + timeslot));
  }
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) override {
    events.push_back("record " + std::to_string(trunk * 32 + timeslot) + " " + Text(block.data(), block.size()));
    return false;
  }
  void OnDigit(uint32_t, uint32_t, char) override {}
  void OnAudioNotice(const char* text) override { events.push_back(std::string("log ") + text); }
  int SendPacket(const uint8_t* packet, size_t length) override {
    events.push_back("sent " + Text(packet, length));
    return static_cast<int>(length);
  }
  void WaitToSend(int32_t) override { ADD_FAILURE(); }

  SApplication application;
  Events events;
  SAudioControls controls;
  CCardRings rings;
  CEchoBank echo;
  CStopFlag stop;
  CPacketSender sender;
  CAudioReceiver receiver;
  CAudioPacer pacer;
};

class CReceiverOracle {
 public:
  CReceiverOracle(unsigned trunks, unsigned blocks) : card(trunks, blocks) {
    application.stop = [this](unsigned position) { card.Flush(position); };
    card.play = [this](unsigned position, uint8_t* block) { application.Play(position, block); };
    card.queryMark = [this](unsigned position) { return application.Mark(position); };
    card.event = [this](const std::string& text) { events.push_back(text); };
    card.sent = [this](const literal::Packet& packet) {
      events.push_back("sent " + Text(packet.data(), packet.size()));
    };
  }
  Events Take() { return std::exchange(events, {}); }

  literal::CCard card;

 private:
  SApplication application;
  Events events;
};

struct SRun {
  unsigned trunks;
  unsigned blocks;
  unsigned packets;
  bool echo;
};

// The product and its literal form, given the same.
class AudioReceiverFlow : public testing::TestWithParam<SRun> {
 protected:
  uint32_t Draw(uint32_t bound) { return static_cast<uint32_t>(random() % bound); }

  void EchoOn() {
    for (unsigned trunk = 0; trunk < run.trunks; ++trunk) {
      product.EchoOn(trunk, 32);
      oracle.card.EchoOn(trunk, 32);
    }
  }
  void ArriveRandom(uint32_t sequence) {
    const size_t shortest = std::max<size_t>(584, 8 + run.trunks * 32);
    Packet bytes = literal::MakePacket(sequence, static_cast<uint8_t>(Draw(8)),
                                       shortest + Draw(static_cast<uint32_t>(1449 - shortest)));
    for (size_t i = 8; i < bytes.size(); ++i)
      bytes[i] = static_cast<uint8_t>(random());
    product.Arrive(bytes);
    oracle.card.Arrive(bytes);
  }
  // Mostly the next number; at times one is lost, doubled or late.
  uint32_t Step() {
    const uint32_t what = Draw(16);
    return what == 0 ? 2 : what == 1 ? 0 : what == 2 ? 0xFFFFFFFFU : 1;
  }
  void PassFlushOrSwitch() {
    if (Draw(5) == 0) {
      product.Pass();
      oracle.card.Pass();
    }
    if (Draw(6) == 0) {
      const unsigned position = Draw(run.trunks * 32);
      product.Flush(position);
      oracle.card.Flush(position);
    }
    if (run.echo && Draw(10) == 0) {
      const unsigned trunk = Draw(run.trunks);
      const bool on = Draw(2) == 0;
      product.EchoSwitch(trunk, on);
      oracle.card.EchoSwitch(trunk, on);
    }
  }

  const SRun run = GetParam();
  std::mt19937 random{run.trunks * 100 + run.blocks};
  CReceiverUnderTest product{run.trunks, run.blocks};
  CReceiverOracle oracle{run.trunks, run.blocks};
};

// Packets of any length, passes, flushes, lost and doubled packets and echo switches in random order: every packet
// sent, every block delivered, every mark and every line is the same in both forms, in the same order.
TEST_P(AudioReceiverFlow, MatchesTheLiteralFormByteForByte) {
  if (run.echo)
    EchoOn();
  uint32_t sequence = 1;
  for (unsigned packet = 0; packet < run.packets; ++packet) {
    ArriveRandom(sequence);
    sequence += Step();
    PassFlushOrSwitch();
    ASSERT_TRUE(product.Take() == oracle.Take()) << "packet " << packet;
  }
}

INSTANTIATE_TEST_SUITE_P(Trunks, AudioReceiverFlow,
                         testing::Values(SRun{1, 32, 400, false}, SRun{2, 4, 300, false}, SRun{3, 3, 300, false},
                                         SRun{4, 1, 300, false}, SRun{5, 2, 300, false}, SRun{6, 0, 200, false},
                                         SRun{7, 2, 200, false}, SRun{8, 5, 400, false}, SRun{1, 4, 120, true},
                                         SRun{3, 2, 60, true}));

class AudioReceiver : public testing::Test {
 protected:
  AudioReceiver() {
    EXPECT_TRUE(rings.Create(1, 4));
    EXPECT_TRUE(sender.Create(rings));
    EXPECT_TRUE(receiver.Create(rings));
  }
  void Arrive(Packet packet) { receiver.OnPacket(packet.data(), packet.size()); }

  SAudioControls controls;
  CCardRings rings;
  CEchoBank echo;
  CFakeSink sink;
  CFakeNotice notice;
  CStopFlag stop;
  CPacketSender sender{controls, sink, stop};
  CAudioReceiver receiver{controls, notice, echo, sender, stop};
};

TEST_F(AudioReceiver, TheReplyToAHeldPacketHasItsOwnLength) {
  Arrive(literal::MakePacket(1, 4, 700));
  Arrive(literal::MakePacket(3, 0, 900));
  EXPECT_TRUE(sink.sent.empty());
  Arrive(literal::MakePacket(2, 0, 800));
  ASSERT_EQ(sink.sent.size(), 2U);
  EXPECT_EQ(sink.sent[0].size(), 800U);
  EXPECT_EQ(sink.sent[1].size(), 900U);
  EXPECT_TRUE(notice.lines.empty());
}

TEST_F(AudioReceiver, ABadPacketBetweenDoesNotForgetTheHeldOne) {
  Arrive(literal::MakePacket(1, 4, 700));
  Arrive(literal::MakePacket(3, 0, 700));
  Arrive(literal::MakePacket(9, 0, 583));
  Arrive(Packet());
  Arrive(literal::MakePacket(2, 0, 700));
  EXPECT_EQ(sink.sent.size(), 2U);
}

// A turn without a socket costs 100 ms of waiting, not of the processor, and sees the stop flag at once.
TEST_F(AudioReceiver, WithoutASocketTheThreadWaitsAndEndsWhenItIsAsked) {
  CSocket never;
  const double cpuBefore = ProcessCpuSeconds();
  std::thread thread([&] { receiver.Run(never, kAnyAddress); });
  support::LetPass(std::chrono::milliseconds(350));
  const double used = ProcessCpuSeconds() - cpuBefore;
  const uint32_t before = TickMs();
  stop.Set();
  thread.join();
  EXPECT_LT(used, 0.05);
  EXPECT_LT(TickMs() - before, 90U);
}

// A stop while the first of the replies to a loss goes out; the held packet is not taken up either.
TEST_F(AudioReceiver, NothingIsSentReportedOrTakenUpOnceTheThreadIsStopped) {
  Arrive(literal::MakePacket(1, 4, 700));
  Arrive(literal::MakePacket(3, 0, 700));
  sink.onSend = [this] { stop.Set(); };
  Arrive(literal::MakePacket(2, 0, 700));
  EXPECT_EQ(sink.sent.size(), 1U);
  EXPECT_EQ(controls.sendSequence, 1U);
  Arrive(literal::MakePacket(100, 99, 700));
  EXPECT_EQ(sink.sent.size(), 1U);
  EXPECT_EQ(controls.sendSequence, 1U);
  EXPECT_TRUE(notice.lines.empty());
}

TEST_F(AudioReceiver, AStopAmongManyRepliesEndsThem) {
  sink.onSend = [this] {
    if (sink.sent.size() == 3)
      stop.Set();
  };
  Arrive(literal::MakePacket(1, 99, 700));
  EXPECT_EQ(sink.sent.size(), 3U);
}

// A clock that moves on by a second a look.
std::atomic<uint32_t> laggingClock{0};
uint32_t LaggingClock() {
  return laggingClock += 1000;
}

// Packets stand in the socket before the thread comes: it looks now and then, and whenever it looks, a second later by
// the clock, one waits.
TEST_F(AudioReceiver, AThreadThatCannotKeepUpSaysSoOnce) {
  CSocket own;
  CSocket card;
  const SIpv4Address address = Address("127.0.0.1");
  ASSERT_TRUE(own.OpenUdp() && own.Bind({address, 0}) && own.SetNonBlocking(true));
  ASSERT_TRUE(card.OpenUdp() && card.Bind({address, 0}));
  uint32_t sequence = 0;
  const auto send = [&] {
    const Packet packet = literal::MakePacket(++sequence, 5, 600);
    ASSERT_EQ(card.SendTo(packet.data(), packet.size(), {address, own.LocalPort()}), 600);
  };
  laggingClock = 0;
  CAudioReceiver lagging(controls, notice, echo, sender, stop, &LaggingClock);
  ASSERT_TRUE(lagging.Create(rings));
  for (int i = 0; i < 100; ++i)
    send();
  CEvent answered;
  sink.onSend = [&] {
    if (sink.sent.size() == 100)
      answered.Set();
  };
  std::thread thread([&] { lagging.Run(own, address); });
  EXPECT_TRUE(answered.WaitFor(5000));
  stop.Set();
  own.Close();
  thread.join();
  EXPECT_EQ(notice.lines, std::vector<std::string>{
                              "Audio packets have waited for 2000 ms without a break, receive thread cannot keep up."});
}

TEST_F(AudioReceiver, TenOldPacketsGiveElevenLines) {
  Arrive(literal::MakePacket(1, 4, 700));
  for (int i = 0; i < 10; ++i)
    Arrive(literal::MakePacket(1, 4, 700));
  ASSERT_EQ(notice.lines.size(), 11U);
  EXPECT_EQ(notice.lines[9], "Old/Duplicate Packet -> 1, ignored.");
  EXPECT_EQ(notice.lines[10], "Too many Old/Duplicate Packets, so sequence reset to 1, processed.");
}

}  // namespace
}  // namespace zelk
