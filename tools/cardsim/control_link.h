#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cardsim/control_parser.h"
#include "cardsim/reactor.h"

namespace cardsim {

// Job: a card's TCP side: listens on port 5854, carries one control connection at a time (a new one takes the place of
// the old). Thread: signalling only. Nothing blocks: what cannot be sent at once is queued. Listen throws
// std::system_error when the address cannot be bound.
class CControlLink {
 public:
  struct SHandlers {
    std::function<void(const std::string& peerAddress)> connected;
    std::function<void()> disconnected;
    std::function<void(SControlMessage&&)> message;
  };

  CControlLink(CReactor& signallingReactor, SHandlers eventHandlers);
  ~CControlLink();

  void Listen(const std::string& address);
  void StopListening();
  void Drop();
  void Send(Bytes bytes);

 private:
  struct SAcceptor;
  struct SSession;

  void BeginAccept();
  void BeginRead(const std::shared_ptr<SSession>& open);
  void BeginWrite(const std::shared_ptr<SSession>& open);
  void End(const std::shared_ptr<SSession>& open);

  CReactor& reactor;
  const SHandlers handlers;
  std::unique_ptr<SAcceptor> acceptor;
  std::shared_ptr<SSession> session;
};

}  // namespace cardsim
