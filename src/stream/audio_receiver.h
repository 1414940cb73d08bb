// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/clock.h"
#include "platform/socket.h"
#include "runtime/stop_flag.h"
#include "stream/audio_packet.h"
#include "stream/backlog_watch.h"
#include "stream/demultiplexer.h"
#include "stream/echo_bank.h"
#include "stream/media_hook.h"
#include "stream/packet_sender.h"
#include "stream/sequence_rules.h"

namespace zelk {

// Takes a card's packets in order, answers each, and passes their audio on.
// Thread: receive; Create (false when there is no memory) the opener. Run blocks on the socket without a limit: closing
// it is the way out. Nothing allocates after Create.
class CAudioReceiver {
 public:
  using Clock = uint32_t (*)();

  CAudioReceiver(SAudioControls& cardControls, IAudioNotice& cardNotice, CEchoBank& cardEcho, CPacketSender& cardSender,
                 CStopFlag& generationStop, Clock millisecondClock = &TickMs)
      : controls(cardControls),
        notice(cardNotice),
        echo(cardEcho),
        sender(cardSender),
        stop(generationStop),
        clock(millisecondClock) {}

  bool Create(CCardRings& rings);
  // The thread: until its generation's stop flag is set; then it reports nothing more and sends nothing more, wherever
  // it was. Packets count only from this IPv4 address.
  void Run(CSocket& socket, SIpv4Address cardAddress);
  // One datagram from the card; the bytes are changed where the echo canceller works. A held packet that its coming
  // makes due follows it.
  void OnPacket(uint8_t* packet, size_t length);

 private:
  bool ReadPacket(CSocket& socket, SIpv4Address cardAddress, size_t& length);
  int ReadWaiting(CSocket& socket, SIpv4Endpoint& source);
  void WatchBacklog();
  void Carry(const SSequenceDecision& decision, uint8_t* packet, size_t length);
  void Report(const SSequenceDecision& decision);
  void Process(uint8_t* packet, size_t length);

  SAudioControls& controls;
  IAudioNotice& notice;
  CEchoBank& echo;
  CPacketSender& sender;
  CStopFlag& stop;
  const Clock clock;
  CBacklogWatch backlog;
  uint32_t reads = 0;
  CDemultiplexer demultiplexer;
  CSequenceRules rules;
  uint32_t trunks = 0;
  std::array<uint8_t, kAudioBufferBytes> buffer{};
  std::array<uint8_t, kAudioBufferBytes> heldPacket{};
  size_t heldLength = 0;
};

}  // namespace zelk
