// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/control_link.h"

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <deque>
#include <utility>

#include "cardsim/base/wire.h"

namespace cardsim {

using asio::ip::tcp;

struct CControlLink::SAcceptor {
  explicit SAcceptor(asio::io_context& io) : listener(io) {}
  tcp::acceptor listener;
};

struct CControlLink::SSession {
  SSession(tcp::socket connection, CControlParser::Sink sink)
      : socket(std::move(connection)), parser(std::move(sink)) {}
  tcp::socket socket;
  CControlParser parser;
  std::array<std::uint8_t, 8192> buffer{};
  std::deque<Bytes> queue;
  Bytes held;
  bool isHalfClosed = false;
};

CControlLink::CControlLink(CReactor& signallingReactor, SHandlers eventHandlers)
    : reactor(signallingReactor), handlers(std::move(eventHandlers)) {}

CControlLink::~CControlLink() = default;

void CControlLink::Listen(const std::string& address) {
  const tcp::endpoint endpoint(asio::ip::make_address_v4(address), kCardPort);
  acceptor = std::make_unique<SAcceptor>(reactor.Io());
  acceptor->listener.open(endpoint.protocol());
  acceptor->listener.set_option(tcp::acceptor::reuse_address(true));
  acceptor->listener.bind(endpoint);
  acceptor->listener.listen();
  BeginAccept();
}

void CControlLink::StopListening() {
  acceptor.reset();
}

void CControlLink::BeginAccept() {
  acceptor->listener.async_accept([this](const asio::error_code& error, tcp::socket socket) {
    if (error == asio::error::operation_aborted) {
      return;
    }
    asio::error_code failed = error;
    const auto peer = failed ? tcp::endpoint() : socket.remote_endpoint(failed);
    if (!failed) {
      Drop();
      socket.set_option(tcp::no_delay(true), failed);
      session = std::make_shared<SSession>(std::move(socket),
                                           [this](SControlMessage&& message) { handlers.message(std::move(message)); });
      handlers.connected(peer.address().to_string());
      BeginRead(session);
    }
    BeginAccept();
  });
}

void CControlLink::BeginRead(const std::shared_ptr<SSession>& open) {
  open->socket.async_read_some(asio::buffer(open->buffer),
                               [this, open](const asio::error_code& error, std::size_t bytes) {
                                 if (open != session) {
                                   return;
                                 }
                                 if (error) {
                                   End(open);
                                   return;
                                 }
                                 open->parser.Feed(ByteView(open->buffer.data(), bytes));
                                 if (open == session) {
                                   BeginRead(open);
                                 }
                               });
}

void CControlLink::Send(Bytes bytes) {
  if (session == nullptr || session->isHalfClosed || bytes.empty()) {
    return;
  }
  if (isHeld) {
    session->held.insert(session->held.end(), bytes.begin(), bytes.end());
  } else {
    Queue(std::move(bytes));
  }
}

void CControlLink::Queue(Bytes bytes) {
  const bool isIdle = session->queue.empty();
  const std::size_t piece = pieceBytes == 0 ? bytes.size() : pieceBytes;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const ByteView part = ByteView(bytes).subspan(at, std::min(piece, bytes.size() - at));
    session->queue.emplace_back(part.begin(), part.end());
  }
  if (isIdle && !session->queue.empty()) {
    BeginWrite(session);
  }
}

void CControlLink::BeginWrite(const std::shared_ptr<SSession>& open) {
  asio::async_write(open->socket, asio::buffer(open->queue.front()),
                    [this, open](const asio::error_code& error, std::size_t) {
                      if (open != session) {
                        return;
                      }
                      if (error && !open->isHalfClosed) {
                        End(open);
                        return;
                      }
                      EndWrite(open);
                    });
}

void CControlLink::EndWrite(const std::shared_ptr<SSession>& open) {
  open->queue.pop_front();
  if (open->queue.empty()) {
    return;
  }
  if (piecePause.count() == 0) {
    BeginWrite(open);
    return;
  }
  reactor.After(piecePause, [this, open] {
    if (open == session) {
      BeginWrite(open);
    }
  });
}

void CControlLink::SetPieces(std::size_t bytes, std::chrono::milliseconds pause) {
  pieceBytes = bytes;
  piecePause = pause;
}

void CControlLink::Hold(bool on) {
  isHeld = on;
  if (!on && session != nullptr) {
    Queue(std::exchange(session->held, Bytes()));
  }
}

void CControlLink::Reset() {
  if (session != nullptr) {
    asio::error_code ignored;
    session->socket.set_option(tcp::socket::linger(true, 0), ignored);
    session->socket.close(ignored);
    Drop();
  }
}

void CControlLink::HalfClose() {
  if (session != nullptr) {
    session->isHalfClosed = true;
    asio::error_code ignored;
    session->socket.shutdown(tcp::socket::shutdown_send, ignored);
  }
}

void CControlLink::Drop() {
  if (session != nullptr) {
    End(session);
  }
}

void CControlLink::End(const std::shared_ptr<SSession>& open) {
  // The argument may be the member that is reset here.
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
  const std::shared_ptr<SSession> ending = open;
  session.reset();
  asio::error_code ignored;
  ending->socket.shutdown(tcp::socket::shutdown_both, ignored);
  ending->socket.close(ignored);
  handlers.disconnected();
}

}  // namespace cardsim
