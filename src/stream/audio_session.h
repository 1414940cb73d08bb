// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <memory>

#include "platform/socket.h"
#include "runtime/config.h"
#include "runtime/stop_flag.h"
#include "stream/audio_controls.h"
#include "stream/audio_pacer.h"
#include "stream/audio_receiver.h"
#include "stream/card_rings.h"
#include "stream/echo_bank.h"
#include "stream/packet_sender.h"

namespace zelk {

// Everything that the two audio threads of one generation touch. Both threads and the stream share it, so that a thread
// that outlives its join has only its own to touch. Thread: Create and Echo().Configure the opener; RunReceiver
// receive; RunPacer pacer; Stop and CloseSocket any.
class CAudioSession : private IPacketSink {
 public:
  CAudioSession(std::shared_ptr<SAudioControls> cardControls, IAudioNotice& cardNotice);

  // Socket, rings and buffers; false when the socket cannot be had or there is no memory.
  bool Create(SIpv4Address localAddress, SIpv4Address card, uint32_t trunkCount, uint32_t blocks,
              const SDtmfSettings& dtmf);
  uint16_t LocalPort() const { return localPort; }
  int ReceiveBuffer() const { return socket.ReceiveBuffer(); }
  int SendBuffer() const { return socket.SendBuffer(); }
  CEchoBank& Echo() { return echo; }

  void RunReceiver() { receiver.Run(socket, cardAddress); }
  void RunPacer() { pacer.Run(stop); }

  void Stop() {
    stop.Set();
    rings.Rest().Wake();
  }
  void CloseSocket() { socket.Close(); }

 private:
  bool OpenSocket(SIpv4Address localAddress);
  void ReportBuffers() const;
  int SendPacket(const uint8_t* packet, size_t length) override;
  void WaitToSend(int32_t timeoutMs) override { socket.WaitWritable(timeoutMs); }

  std::shared_ptr<SAudioControls> controls;
  CStopFlag stop;
  CSocket socket;
  SIpv4Address cardAddress;
  uint16_t localPort = 0;
  CCardRings rings;
  CEchoBank echo;
  CPacketSender sender;
  CAudioReceiver receiver;
  CAudioPacer pacer;
};

}  // namespace zelk
