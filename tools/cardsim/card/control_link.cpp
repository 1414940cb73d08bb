// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/card/control_link.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "common/wire.h"

namespace cardsim {

struct CControlLink::SSession {
  SSession(std::unique_ptr<IStream> connection, CControlParser::Sink sink)
      : stream(std::move(connection)), parser(std::move(sink)) {}
  std::unique_ptr<IStream> stream;
  CControlParser parser;
  std::deque<Bytes> queue;  // the first is under way
  Bytes held;
  bool isHalfClosed = false;
};

CControlLink::CControlLink(IReactor& signallingReactor, SHandlers eventHandlers)
    : reactor(signallingReactor), handlers(std::move(eventHandlers)) {}

CControlLink::~CControlLink() = default;

void CControlLink::Listen(const std::string& address) {
  listener = reactor.Listen(
      ToEndpoint(address, kCardPort),
      [this](std::unique_ptr<IStream> stream, const SEndpoint& peer) { OnAccept(std::move(stream), peer); });
}

void CControlLink::StopListening() {
  listener.reset();
}

void CControlLink::OnAccept(std::unique_ptr<IStream> stream, const SEndpoint& peer) {
  Drop();
  const auto open = std::make_shared<SSession>(std::move(stream), [this](SControlMessage&& message) {
    message.time = reactor.Now();
    handlers.message(std::move(message));
  });
  session = open;
  handlers.connected(FormatIpv4(peer.address));
  // The stream is the session's: its handlers must not hold the session.
  const std::weak_ptr<SSession> mine = open;
  open->stream->Read({[mine](ByteView data) {
                        if (const auto reading = mine.lock()) {
                          reading->parser.Feed(data);
                        }
                      },
                      [this, mine] {
                        if (const auto ending = mine.lock(); ending != nullptr && ending == session) {
                          End(ending);
                        }
                      }});
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
  open->stream->Write(std::move(open->queue.front()), [this, mine = std::weak_ptr<SSession>(open)](bool isWhole) {
    const auto writing = mine.lock();
    if (writing == nullptr || writing != session) {
      return;
    }
    if (!isWhole && !writing->isHalfClosed) {
      End(writing);
      return;
    }
    EndWrite(writing);
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
    session->stream->Reset();
    Drop();
  }
}

void CControlLink::HalfClose() {
  if (session != nullptr) {
    session->isHalfClosed = true;
    session->stream->HalfClose();
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
  ending->stream.reset();
  handlers.disconnected();
}

}  // namespace cardsim
