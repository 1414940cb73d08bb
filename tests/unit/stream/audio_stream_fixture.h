// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "native_system.h"
#include "platform/socket.h"
#include "stream/audio_stream.h"
#include "support/addresses.h"

// An open audio stream with a card's end of it, for the tests that need its sockets and threads.
namespace zelk::audiotest {

// Wire constants of the test's own.
constexpr size_t kHeader = 8;
constexpr int32_t kPatienceMs = 5000;

using Packet = std::vector<uint8_t>;

inline Packet MakePacket(uint32_t sequence, uint8_t hint, size_t length, uint8_t fill = 0xD5) {
  Packet packet(length, fill);
  packet[0] = 0xFF;
  packet[1] = 0x55;
  for (unsigned i = 0; i < 4; ++i)
    packet[2 + i] = static_cast<uint8_t>(sequence >> (8 * i));
  packet[6] = hint;
  packet[7] = 0;
  return packet;
}

inline uint32_t SequenceOf(const Packet& packet) {
  return packet[2] | packet[3] << 8 | packet[4] << 16 | static_cast<uint32_t>(packet[5]) << 24;
}

inline size_t LengthOf(uint32_t trunks, size_t frames) {
  return kHeader + frames * trunks * 32;
}

// The card's side: one socket on the card's address.
class CTestCard {
 public:
  explicit CTestCard(const char* address = kCardAddress, uint16_t port = kCardPort) {
    EXPECT_TRUE(socket.OpenUdp());
    EXPECT_TRUE(socket.Bind({Address(address), port}));
    EXPECT_TRUE(socket.SetNonBlocking(true));
  }

  void Send(uint16_t port, const Packet& packet) {
    EXPECT_EQ(socket.SendTo(packet.data(), packet.size(), {Address("127.0.0.1"), port}),
              static_cast<int>(packet.size()));
  }

  Packet Receive() {
    Packet packet(2000);
    SIpv4Endpoint source;
    if (socket.WaitReadable(kPatienceMs) != EWait::kReady)
      return {};
    const int length = socket.ReceiveFrom(packet.data(), packet.size(), source);
    packet.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return packet;
  }

  bool NothingWaits() { return socket.WaitReadable(0) == EWait::kTimeout; }

 private:
  CSocket socket;
};

class CRecordingNotice : public IAudioNotice {
 public:
  void OnAudioNotice(const char* text) override {
    const std::lock_guard hold(mutex);
    lines.emplace_back(text);
  }
  std::vector<std::string> Lines() {
    const std::lock_guard hold(mutex);
    return lines;
  }

 private:
  std::mutex mutex;
  std::vector<std::string> lines;
};

// Plays a byte per position and keeps what position (0, 1) received.
class CTestHook : public IMediaHook {
 public:
  void FillBlock(uint32_t trunk, uint32_t timeslot, SBlockFill& fill) override {
    const std::lock_guard hold(mutex);
    std::memset(fill.data, PlayByte(trunk, timeslot), kBlockBytes);
    fill.KeepQueued();
    Count(otherThreads);
  }
  bool EndsPlay(uint32_t trunk, uint32_t timeslot) override {
    const std::lock_guard hold(mutex);
    Count(otherThreads);
    return ++queries[trunk][timeslot] == markedBlock && timeslot == 1;
  }
  void OnMarkSent(uint32_t, uint32_t) override {
    const std::lock_guard hold(mutex);
    ++marksSent;
    Count(markThreads);
  }
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) override {
    const std::lock_guard hold(mutex);
    if (trunk == 0 && timeslot == 1)
      recorded.emplace_back(block.begin(), block.end());
    Count(otherThreads);
    return false;
  }
  void OnDigit(uint32_t, uint32_t, char) override {
    const std::lock_guard hold(mutex);
    Count(otherThreads);
  }

  static uint8_t PlayByte(uint32_t trunk, uint32_t timeslot) { return static_cast<uint8_t>(trunk * 32 + timeslot); }

  template <class Condition>
  bool Await(Condition condition) {
    std::unique_lock hold(mutex);
    return changed.wait_for(hold, std::chrono::milliseconds(kPatienceMs), [&] { return condition(*this); });
  }

  int markedBlock = 0;  // of timeslot 1: its n-th filled block ends a play
  std::array<std::array<int, 32>, 8> queries{};
  int marksSent = 0;
  int calls = 0;
  std::vector<Packet> recorded;
  std::set<std::thread::id> markThreads;   // on which a mark was reported as sent
  std::set<std::thread::id> otherThreads;  // of all other calls

 private:
  // The lock is held.
  void Count(std::set<std::thread::id>& threads) {
    threads.insert(std::this_thread::get_id());
    ++calls;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
};

class CAudioStreamTest : public testing::Test {
 protected:
  void Open(uint32_t trunks = 1, uint32_t blocks = 32) {
    stream.ResetChannels(SDtmfSettings());
    ASSERT_TRUE(stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), trunks, blocks));
    port = stream.LocalPort();
    ASSERT_NE(port, 0);
    ASSERT_TRUE(stream.StartPacer());
    ASSERT_TRUE(stream.StartReceiver());
    for (uint32_t trunk = 0; trunk < trunks; ++trunk)
      stream.ConfigureEcho(trunk, 32);
  }

  void Close() {
    stream.RequestStop();
    stream.CloseSocket();
    EXPECT_TRUE(stream.JoinReceiver(3000));
    EXPECT_TRUE(stream.JoinPacer(3000));
    stream.FreeBuffers();
  }

  // The next packet in order, and its one reply.
  Packet Exchange(const Packet& packet) {
    card.Send(port, packet);
    return card.Receive();
  }

  CTestCard card;
  CRecordingNotice notice;
  CTestHook hook;
  CAudioStream stream{notice};
  uint16_t port = 0;
};

}  // namespace zelk::audiotest
