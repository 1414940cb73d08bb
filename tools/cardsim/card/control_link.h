// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "cardsim/base/control_parser.h"
#include "cardsim/base/reactor.h"

namespace cardsim {

// Job: a card's TCP side: listens on port 5854, carries one control connection at a time (a new one takes the place of
// the old). Thread: signalling only. Nothing blocks: what cannot be sent at once is queued. Listen throws
// std::system_error when the address cannot be bound. Each message is a write of its own, unless a test wants the
// stream in pieces or held back; both outlast the connection.
class CControlLink {
 public:
  struct SHandlers {
    std::function<void(const std::string& peerAddress)> connected;
    std::function<void()> disconnected;
    std::function<void(SControlMessage&&)> message;
  };

  CControlLink(IReactor& signallingReactor, SHandlers eventHandlers);
  ~CControlLink();

  void Listen(const std::string& address);
  void StopListening();
  void Drop();
  void Reset();      // ends the connection with a RST
  void HalfClose();  // ends the sending side; what the library sends is still taken
  void Send(Bytes bytes);
  // From now on no write carries more than this many bytes (0: whole messages), and each waits this long for the next.
  void SetPieces(std::size_t bytes, std::chrono::milliseconds pause);
  // On: what is sent collects. Off: it goes out in one write.
  void Hold(bool on);

 private:
  struct SSession;

  void OnAccept(std::unique_ptr<IStream> stream, const SEndpoint& peer);
  void Queue(Bytes bytes);
  void BeginWrite(const std::shared_ptr<SSession>& open);
  void EndWrite(const std::shared_ptr<SSession>& open);
  void End(const std::shared_ptr<SSession>& open);

  IReactor& reactor;
  const SHandlers handlers;
  std::unique_ptr<IListener> listener;
  std::shared_ptr<SSession> session;
  std::size_t pieceBytes = 0;
  std::chrono::milliseconds piecePause{0};
  bool isHeld = false;
};

}  // namespace cardsim
