// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/stop_flag.h"
#include "stream/audio_controls.h"
#include "stream/audio_packet.h"
#include "stream/block_pool.h"
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

// A packet that was sent when the received one at hand was due, or the transmit buffer in its place.
struct SSentPacket {
  uint8_t* block = nullptr;  // to be returned; null for the transmit buffer
  const uint8_t* samples = nullptr;
  size_t bytes = 0;
};

// Builds and sends packets, and keeps a copy of each so that the echo canceller can pair it with what came back.
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
  void Transmit();
  void Keep();

  SAudioControls& controls;
  IPacketSink& sink;
  const CStopFlag& stop;
  CMultiplexer multiplexer;
  CBlockPool sentPackets;  // the tag of a ready block is its packet's length
  std::array<uint8_t, kAudioBufferBytes> buffer{};
  size_t bufferLength = 0;  // of the packet last built
  uint32_t trunks = 0;
};

}  // namespace zelk
