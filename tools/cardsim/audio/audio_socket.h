// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "cardsim/base/bytes.h"
#include "cardsim/base/reactor.h"

namespace cardsim {

// Job: a card's UDP socket on port 5854: tells probes from replies, sends to the library and elsewhere.
// Thread: any for Open, Close, SetLibrary, SendTo and PostToLibrary; SendToLibrary and both handlers are the audio
// thread's. Open throws std::system_error when the address cannot be bound. What the system does not take is lost.
class CAudioSocket {
 public:
  using ProbeHandler = std::function<void(const std::string& fromAddress)>;
  using ReplyHandler = std::function<void(ByteView reply)>;

  CAudioSocket(IReactor& audioReactor, ProbeHandler probeHandler, ReplyHandler replyHandler);

  void Open(const std::string& address);
  void Close();
  // Where packets go; what comes from that address is a reply.
  void SetLibrary(const std::string& address, std::uint16_t port);
  void SendToLibrary(ByteView packet);
  // The same from any thread, later.
  void PostToLibrary(Bytes packet);
  void SendTo(Bytes datagram, const std::string& address, std::uint16_t port);

 private:
  void TakeDatagram(ByteView datagram, const SEndpoint& from);
  void Write(ByteView datagram, const SEndpoint& to);

  IReactor& reactor;
  const ProbeHandler onProbe;
  const ReplyHandler onReply;
  std::unique_ptr<IDatagrams> socket;  // audio thread
  SEndpoint library;                   // audio thread
};

}  // namespace cardsim
