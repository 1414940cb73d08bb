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
#include "cardsim/base/wire.h"
#include "cardsim/exchange/pri_peer.h"

namespace cardsim::test {

using namespace std::chrono_literals;

// The least that a card takes for the library: connects, sets the card up, runs a user-side libpri on trunk 0, answers
// every audio packet with one of the same size. It answers calls, and sends back what it hears (the sample area of the
// packet before) in every timeslot. One thread of its own; the test's calls are handed to it.
class CMiniLibrary {
 public:
  static constexpr int kUp = 1, kDown = 2, kRing = 5, kHangup = 6, kAnswer = 8, kHangupAck = 9, kHangupReq = 15;

  explicit CMiniLibrary(const std::string& card, int trunkCount = 1)
      : trunks(trunkCount),
        cardAddress(asio::ip::make_address_v4(card)),
        peer(
            SPeerRole{true, 5}, [this](ByteView frame) { SendFrame(frame); },
            [this](const SPriEvent& event) { OnEvent(event); }) {
    control.connect({cardAddress, kCardPort});
    audio.open(asio::ip::udp::v4());
    audio.bind({asio::ip::make_address_v4("127.0.0.1"), 0});
    ReadControl();
    ReadAudio();
    Tick();
  }

  ~CMiniLibrary() {
    io.stop();
    if (thread.joinable()) {
      thread.join();
    }
  }

  void Run() {
    thread = std::thread([this] { io.run(); });
  }

  // Sends what opening a card sends, then begins layer 2.
  void SetUp() {
    Write({0xFF, 0x01});
    Write({0xFF, 0x04});
    Write({0xFF, 0x12, 0x01, 0x01, 0x00, 0, 0, 0, 0});
    const std::uint16_t port = audio.local_endpoint().port();
    Write({0xFF, 0x05, static_cast<std::uint8_t>(port & 0xFF), static_cast<std::uint8_t>(port >> 8), 0xFF});
    Run();
    asio::post(io, [this] { peer.Start(); });
  }

  void Write(const Bytes& bytes) { asio::write(control, asio::buffer(bytes)); }

  void Dial(int timeslot, const std::string& number) {
    asio::post(io, [this, timeslot, number] { dialled = peer.Setup({timeslot, true, "700", number, 0x21, "", 0}); });
  }
  void Hangup(int cause) {
    asio::post(io, [this, cause] { peer.Hangup(dialled, cause); });
  }

  bool WaitEvent(int code, std::chrono::milliseconds timeout, int count = 1) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, timeout, [&] { return counts[code] >= count; });
  }
  SPriEvent Event(int code) {
    const std::lock_guard guard(lock);
    return events.at(code);
  }
  Bytes Received() {
    const std::lock_guard guard(lock);
    return received;
  }
  bool WaitReceived(std::size_t bytes, std::chrono::milliseconds timeout) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, timeout, [&] { return received.size() >= bytes; });
  }
  bool WaitClosed(std::chrono::milliseconds timeout) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, timeout, [&] { return closed; });
  }

  std::atomic<int> refuseCause{0};  // not 0: calls are refused with this cause
  std::atomic<bool> replyToAudio{true};
  std::atomic<std::uint64_t> packets{0};

 private:
  void ReadControl() {
    control.async_read_some(asio::buffer(controlBuffer), [this](const asio::error_code& error, std::size_t bytes) {
      {
        const std::lock_guard guard(lock);
        received.insert(received.end(), controlBuffer.begin(),
                        controlBuffer.begin() + static_cast<std::ptrdiff_t>(bytes));
        closed = closed || static_cast<bool>(error);
      }
      changed.notify_all();
      if (!error) {
        stream.insert(stream.end(), controlBuffer.begin(), controlBuffer.begin() + static_cast<std::ptrdiff_t>(bytes));
        TakeMessages();
        ReadControl();
      }
    });
  }

  // Messages of the card: information 24 bytes, status 2 + trunks, frame 5 + length, HDLC error 4, register 6.
  void TakeMessages() {
    while (stream.size() >= 2) {
      const std::map<int, std::size_t> sizes{
          {0x01, 24}, {0x07, 2U + static_cast<std::size_t>(trunks)}, {0x11, 4}, {0x02, 6}};
      std::size_t size = 0;
      if (stream[1] == 0x10) {
        if (stream.size() < 5) {
          return;
        }
        size = 5U + ReadLe16(&stream[3]);
      } else {
        size = sizes.at(stream[1]);
      }
      if (stream.size() < size) {
        return;
      }
      if (stream[1] == 0x10) {
        peer.Receive(ByteView(stream).subspan(5, size - 7));
      }
      stream.erase(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size));
    }
  }

  void SendFrame(ByteView frame) {
    Bytes out{0xFF, 0x10, 0x01, static_cast<std::uint8_t>(frame.size()), static_cast<std::uint8_t>(frame.size() >> 8)};
    out.insert(out.end(), frame.begin(), frame.end());
    out.push_back(0xFF);
    asio::error_code ignored;
    asio::write(control, asio::buffer(out), ignored);
  }

  void ReadAudio() {
    audio.async_receive_from(asio::buffer(audioBuffer), from, [this](const asio::error_code& error, std::size_t bytes) {
      if (error) {
        return;
      }
      ++packets;
      const bool firstPacket = previous.empty();
      Bytes now(audioBuffer.begin(), audioBuffer.begin() + static_cast<std::ptrdiff_t>(bytes));
      if (!firstPacket && replyToAudio) {
        WriteAudioHeader(previous.data(), counter++, 0);
        asio::error_code ignored;
        audio.send_to(asio::buffer(previous), {cardAddress, kCardPort}, 0, ignored);
      }
      previous = std::move(now);
      ReadAudio();
    });
  }

  void Tick() {
    timer.expires_after(10ms);
    timer.async_wait([this](const asio::error_code& error) {
      if (!error) {
        peer.RunTimers();
        Tick();
      }
    });
  }

  void OnEvent(const SPriEvent& event) {
    if (event.code == kRing && refuseCause != 0) {
      peer.Proceeding(event.call, event.timeslot);
      peer.Hangup(event.call, refuseCause);
    } else if (event.code == kRing) {
      peer.Proceeding(event.call, event.timeslot);
      peer.Alerting(event.call, event.timeslot);
      peer.Connect(event.call, event.timeslot);
    } else if (event.code == kAnswer) {
      peer.ConnectAcknowledge(event.call);
    } else if (event.code == kHangup || event.code == kHangupReq) {
      peer.Hangup(event.call, event.cause);
    }
    {
      const std::lock_guard guard(lock);
      events[event.code] = event;
      ++counts[event.code];
    }
    changed.notify_all();
  }

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
