// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/ipv4_address.h"
#include "runtime/config.h"
#include "stream/media_hook.h"

namespace zelk {

// One card's audio: the UDP socket, the receive and pacer threads, and for every trunk and timeslot the block rings,
// the digit detector and the echo canceller. Knows no card and no call; calls up through IMediaHook and IAudioNotice.
// Thread: opener (one at a time: start-up or the announcement listener) for everything up to FreeBuffers; the last
// group any. The join calls block up to their limit. The threads share the ownership of what they touch, so one that
// outlives its join harms nothing.
class CAudioStream {
 public:
  // cardNumber: the card's place on the status page.
  explicit CAudioStream(IAudioNotice& notice, uint32_t cardNumber = 0);
  ~CAudioStream();
  CAudioStream(const CAudioStream&) = delete;
  CAudioStream& operator=(const CAudioStream&) = delete;

  // First step of a card's open: counters back to their start, every detector reset with these thresholds and on.
  void ResetChannels(const SDtmfSettings& dtmf);
  // Makes and binds the socket to (local address, any port) and the rings of `blocks` blocks a channel and direction.
  // Audio is sent to (cardAddress, kCardPort) and taken from cardAddress, any port.
  bool OpenSocket(SIpv4Address localAddress, SIpv4Address cardAddress, uint32_t trunkCount, uint32_t blocks);
  uint16_t LocalPort() const;
  bool StartPacer();
  bool StartReceiver();
  // (Re)makes the trunk's 32 cancellers with tailMs x 8 taps.
  void ConfigureEcho(uint32_t trunk, int32_t tailMs);

  // Closing, in the card's order.
  void RequestStop();
  void CloseSocket();
  bool JoinReceiver(uint32_t timeoutMs);
  bool JoinPacer(uint32_t timeoutMs);
  void FreeBuffers();  // rings and cancellers

  // Thread: any.
  void SetHook(IMediaHook* hook);  // null removes it
  void SetEchoSwitch(uint32_t trunk, bool on);
  bool EchoSwitch(uint32_t trunk) const;
  // Turns all audio that waits in the channel's transmit ring into the idle byte 0x54, at once.
  void SilenceTransmit(uint32_t trunk, uint32_t timeslot);
  // How often that was done: lives as long as the stream. Null out of range.
  const std::atomic<uint32_t>* FlushCounter(uint32_t trunk, uint32_t timeslot) const;

 private:
  class CImpl;
  std::shared_ptr<CImpl> impl;
};

}  // namespace zelk
