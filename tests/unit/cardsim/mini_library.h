// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cardsim/base/bytes.h"
#include "cardsim/exchange/pri_peer.h"
#include "common/wire.h"

namespace cardsim::test {

using namespace std::chrono_literals;

// The least that a card takes for the library: connects, sets the card up, runs a user-side libpri on trunk 0, answers
// every audio packet with one of the same size. It answers calls, and sends back what it hears (the sample area of the
// packet before) in every timeslot. One thread of its own; the test's calls are handed to it.
class CMiniLibrary {
 public:
  static constexpr int kUp = 1, kDown = 2, kRing = 5, kHangup = 6, kAnswer = 8, kHangupAck = 9, kHangupReq = 15;

  explicit CMiniLibrary(const std::string& card, int trunkCount = 1);
  ~CMiniLibrary();
  void Run();
  // Sends what opening a card sends, then begins layer 2.
  void SetUp();
  void Write(const Bytes& bytes) { asio::write(control, asio::buffer(bytes)); }
  void Dial(int timeslot, const std::string& number);
  void Hangup(int cause);
  bool WaitEvent(int code, std::chrono::milliseconds timeout, int count = 1);
  SPriEvent Event(int code);
  Bytes Received();
  bool WaitReceived(std::size_t bytes, std::chrono::milliseconds timeout);
  bool WaitClosed(std::chrono::milliseconds timeout);

  std::atomic<int> refuseCause{0};  // not 0: calls are refused with this cause
  std::atomic<bool> replyToAudio{true};
  std::atomic<std::uint64_t> packets{0};

 private:
  void ReadControl();
  // Messages of the card: information 24 bytes, status 2 + trunks, frame 5 + length, HDLC error 4, register 6.
  void TakeMessages();
  void SendFrame(ByteView frame);
  void ReadAudio();
  void Tick();
  void OnEvent(const SPriEvent& event);

  const int trunks;
  asio::io_context io;
  asio::ip::address_v4 cardAddress;
  asio::ip::tcp::socket control{io};
  asio::ip::udp::socket audio{io};
  asio::ip::udp::endpoint from;
  asio::steady_timer timer{io};
  std::array<std::uint8_t, 4096> controlBuffer{};
  std::array<std::uint8_t, 2048> audioBuffer{};
  Bytes stream;
  Bytes previous;
  std::uint32_t counter = 0;
  CPriPeer peer;
  q931_call* dialled = nullptr;
  std::thread thread;

  std::mutex lock;
  std::condition_variable changed;
  std::map<int, SPriEvent> events;  // guarded by lock; the last of each kind
  std::map<int, int> counts;        // guarded by lock
  Bytes received;                   // guarded by lock
  bool closed = false;              // guarded by lock
};

}  // namespace cardsim::test
