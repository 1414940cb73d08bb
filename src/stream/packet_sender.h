// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "runtime/stop_flag.h"
#include "stream/audio_controls.h"
#include "stream/audio_packet.h"
#include "stream/multiplexer.h"

namespace zelk {

// Winsock's number for a socket that cannot send now (WSAEWOULDBLOCK), compared with on every system.
constexpr int kSocketWouldBlock = 10035;

// Where packets go: the card's audio address.
// Thread: receive.
class IPacketSink {
 public:
  virtual ~IPacketSink() = default;
  virtual int SendPacket(const uint8_t* packet, size_t length) = 0;  // bytes sent, or -1
  virtual void WaitToSend(int32_t timeoutMs) = 0;
};

// A packet that was sent when the received one at hand was due, or the one sent last in its place.
struct SSentPacket {
  const uint8_t* samples = nullptr;
  size_t bytes = 0;
  bool isKept = false;  // false: the one sent last
};

// Builds and sends packets, and keeps each until the echo canceller can pair it with what came back. A packet is built
// where it is kept, so nothing is copied; the room used last is used next, while the cache still has it.
// Thread: receive, but Create the opener (false when there is no memory). Nothing is reported when a send fails.
class CPacketSender {
 public:
  CPacketSender(SAudioControls& cardControls, IPacketSink& cardSink, const CStopFlag& generationStop)
      : controls(cardControls), sink(cardSink), stop(generationStop), multiplexer(cardControls, generationStop) {}

  bool Create(CCardRings& rings);
  // One packet of this length, an accepted received one's. Nothing once the stop flag is set: not even a number is
  // used.
  void Send(size_t length);

  // The oldest packet sent and not yet handed out. Return it before the next.
  SSentPacket TakeSent();
  void ReturnSent(const SSentPacket& sent);

 private:
  static constexpr size_t kSentPackets = 256;

  struct SPacket {
    std::array<uint8_t, kAudioBufferBytes> bytes;
    size_t length;
  };

  void Transmit(const SPacket& packet);

  SAudioControls& controls;
  IPacketSink& sink;
  const CStopFlag& stop;
  CMultiplexer multiplexer;
  uint32_t trunks = 0;
  std::unique_ptr<SPacket[]> room;  // for the packets that are kept, and one for what finds no room
  const SPacket* last = nullptr;    // the packet last built
  // Numbers of places: a stack of the unused, and the kept ones in the order in which they were sent.
  std::array<uint8_t, kSentPackets> unused{};
  size_t unusedCount = 0;
  std::array<uint8_t, kSentPackets> kept{};
  uint8_t oldestKept = 0;
};

}  // namespace zelk
