// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/net/connection.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/simulated/net/fabric.h"
#include "platform/simulated/world.h"

namespace zelk::sim {

namespace {

constexpr size_t kOutsideWindow = 64U << 10;
constexpr int64_t kFirstRetryUs = 200 * kUsPerMs;
constexpr int64_t kLastRetryUs = 120 * kUsPerSecond;
// As the system has them by default.
constexpr int64_t kFirstAskRetryUs = kUsPerSecond;
constexpr int64_t kGiveUpAskUs = 127 * kUsPerSecond;
constexpr int64_t kGiveUpUs = 924 * kUsPerSecond;

}  // namespace

CConnection::CConnection(CWorld& owner, CLines& worldLines, SSocket& libraryEnd, SIpv4Endpoint remote, Asked atArrival)
    : world(owner),
      lines(worldLines),
      libraryAt(libraryEnd.local),
      outsideAt(remote),
      asked(std::move(atArrival)),
      socket(&libraryEnd) {}

SLine& CConnection::LineOf(const SWay& way) {
  return &way == &toOutside ? lines.ToMachine(outsideAt.address) : lines.ToLibrary(outsideAt.address);
}

void CConnection::Push(SWay& way, EKind kind, std::span<const uint8_t> data) {
  CTrace& trace = world.Scheduler().Trace();
  trace.Add(static_cast<uint64_t>(kind));
  trace.AddBytes(data.data(), data.size());
  if (&way == &toOutside) {
    Show(kind, false, data);
  }
  way.queue.push_back({kind, Bytes(data.begin(), data.end()), lines.InOrder(LineOf(way), data.size())});
  Pump(way);
}

void CConnection::Show(EKind kind, bool isToLibrary, std::span<const uint8_t> data) const {
  world.Network().Impl().Show({kind, isToLibrary ? outsideAt : libraryAt, isToLibrary ? libraryAt : outsideAt, data});
}

void CConnection::Schedule(SWay& way, int64_t dueUs) {
  way.isScheduled = true;
  world.At(dueUs, [self = shared_from_this(), &way] {
    way.isScheduled = false;
    self->Arrive(way);
  });
}

void CConnection::Pump(SWay& way) {
  if (!way.isScheduled && !way.isHeld && !way.queue.empty()) {
    Schedule(way, std::max(way.queue.front().dueUs, world.NowUs()));
  }
}

void CConnection::Arrive(SWay& way) {
  if (way.queue.empty()) {
    return;
  }
  const SLink& link = LineOf(way).link;
  const bool isSilent = &way == &toOutside && hasVanished && !isBack;
  if (link.isCut || isSilent || world.Random().Chance(link.lossPerMillion)) {
    FailToArrive(way);
    return;
  }
  way.failures = 0;
  SMessage message = std::move(way.queue.front());
  way.queue.pop_front();
  world.Scheduler().Trace().Add(message.data.size());
  const bool isToLibrary = &way == &toLibrary;
  const bool isTaken = isToLibrary ? TakeAtLibrary(message) : TakeAtOutside(message);
  if (isTaken && isToLibrary) {
    Show(message.kind, true, message.data);
  }
  if (!isTaken) {
    way.queue.push_front(std::move(message));
    way.isHeld = true;
  }
  Pump(way);
}

// Sent again, less and less often, until the sender gives up. A reset is said once.
void CConnection::FailToArrive(SWay& way) {
  const EKind kind = way.queue.front().kind;
  if (kind == EKind::kReset || kind == EKind::kRefuse) {
    way.queue.pop_front();
    Pump(way);
    return;
  }
  if (way.failures == 0) {
    way.failingSinceUs = world.NowUs();
  }
  const bool isAsk = kind == EKind::kAsk;
  const int64_t retryUs =
      std::min((isAsk ? kFirstAskRetryUs : kFirstRetryUs) << std::min(way.failures, 10U), kLastRetryUs);
  ++way.failures;
  if (world.NowUs() - way.failingSinceUs + retryUs > (isAsk ? kGiveUpAskUs : kGiveUpUs)) {
    GiveUp(way);
  } else {
    Schedule(way, world.NowUs() + retryUs);
  }
}

void CConnection::GiveUp(SWay& way) {
  if (&way == &toOutside) {
    LoseLibrary(ETIMEDOUT);
  } else {
    LoseOutside();
  }
}

void CConnection::WakeLibrary() {
  if (socket != nullptr) {
    world.Scheduler().Wake(socket);
  }
}

// The library's end of it has failed.
void CConnection::LoseLibrary(int withError) {
  toOutside.queue.clear();
  if (stage != EStage::kGone) {
    stage = EStage::kGone;
    error = withError;
  }
  WakeLibrary();
}

void CConnection::LoseOutside() {
  toLibrary.queue.clear();
  held.clear();
  isOutsideClosed = true;
  const std::shared_ptr<SHandlers> last = std::exchange(handlers, std::make_shared<SHandlers>());
  if (last->onReset) {
    last->onReset();
  }
}

void CConnection::Ask() {
  const EAnswer answer = asked(*this);
  if (answer == EAnswer::kRefuse) {
    Push(toLibrary, EKind::kRefuse);
  } else if (answer == EAnswer::kSilence) {
    toOutside.queue.push_front({EKind::kAsk, {}, world.NowUs()});
    toOutside.failures += 1;
    FailToArrive(toOutside);
  }
}

bool CConnection::TakeAtOutside(SMessage& message) {
  if (message.kind == EKind::kAsk) {
    Ask();
    return true;
  }
  const bool isForNobody = isOutsideClosed || hasVanished;
  if (message.kind == EKind::kReset) {
    if (!isForNobody) {
      LoseOutside();
    }
    return true;
  }
  if (isForNobody) {
    if (message.kind == EKind::kData || hasVanished) {
      toOutside.queue.clear();
      Push(toLibrary, EKind::kReset);
    }
    return true;
  }
  if (message.kind == EKind::kEnd) {
    isEndHeld = true;
  } else if (isStopped && held.size() + message.data.size() > kOutsideWindow && !held.empty()) {
    return false;
  } else {
    held.insert(held.end(), message.data.begin(), message.data.end());
    outstanding -= message.data.size();
    WakeLibrary();
  }
  TakeHeld();
  return true;
}

// Hands over what has arrived, unless the outside does not read.
void CConnection::TakeHeld() {
  if (isStopped || isOutsideClosed) {
    return;
  }
  if (!held.empty()) {
    const Bytes data(held.begin(), held.end());
    held.clear();
    const std::shared_ptr<SHandlers> kept = handlers;
    if (kept->onData) {
      kept->onData(data);
    }
  }
  if (held.empty() && std::exchange(isEndHeld, false)) {
    const std::shared_ptr<SHandlers> kept = handlers;
    if (kept->onEnd) {
      kept->onEnd();
    }
  }
}

bool CConnection::TakeAtLibrary(SMessage& message) {
  switch (message.kind) {
    case EKind::kAccept:
      if (stage == EStage::kConnecting) {
        stage = EStage::kOpen;
      }
      break;
    case EKind::kRefuse:
      LoseLibrary(ECONNREFUSED);
      break;
    case EKind::kReset:
      LoseLibrary(ECONNRESET);
      break;
    case EKind::kEnd:
      hasPeerEnded = true;
      break;
    default:
      if (socket == nullptr) {
        toLibrary.queue.clear();
        Push(toOutside, EKind::kReset);
        return true;
      }
      if (!received.empty() && received.size() + message.data.size() > static_cast<size_t>(socket->receiveBytes)) {
        return false;
      }
      received.insert(received.end(), message.data.begin(), message.data.end());
  }
  WakeLibrary();
  return true;
}

}  // namespace zelk::sim
