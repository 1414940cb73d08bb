// SPDX-License-Identifier: GPL-2.0-only

// What the two ends of a stream ask of it; connection.cpp is what happens in between.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/simulated/net/connection.h"
#include "platform/simulated/world.h"

namespace zelk::sim {

void CConnection::Connect() {
  Push(toOutside, EKind::kAsk);
}

int CConnection::TakeError() {
  return std::exchange(error, 0);
}

int64_t CConnection::Send(std::span<const uint8_t> data) {
  if (error != 0) {
    return -TakeError();
  }
  if (stage == EStage::kGone) {
    return -EPIPE;
  }
  const auto capacity = static_cast<size_t>(socket->sendBytes);
  if (stage == EStage::kConnecting || outstanding >= capacity) {
    return -EAGAIN;
  }
  size_t taken = std::min(data.size(), capacity - outstanding);
  if (taken > 1 && world.Random().Chance(LineOf(toOutside).link.partialPerMillion)) {
    taken = 1 + world.Random().Below(taken - 1);
  }
  outstanding += taken;
  Push(toOutside, EKind::kData, data.first(taken));
  return static_cast<int64_t>(taken);
}

int64_t CConnection::Receive(std::span<uint8_t> room) {
  if (received.empty()) {
    if (error != 0) {
      return -TakeError();
    }
    return hasPeerEnded || stage == EStage::kGone ? 0 : -EAGAIN;
  }
  size_t taken = std::min(room.size(), received.size());
  if (taken > 1 && world.Random().Chance(LineOf(toLibrary).link.partialPerMillion)) {
    taken = 1 + world.Random().Below(taken - 1);
  }
  const auto end = received.begin() + static_cast<std::ptrdiff_t>(taken);
  std::copy(received.begin(), end, room.begin());
  received.erase(received.begin(), end);
  toLibrary.isHeld = false;
  Pump(toLibrary);
  return static_cast<int64_t>(taken);
}

bool CConnection::IsReadable() const {
  return !received.empty() || hasPeerEnded || stage == EStage::kGone;
}

bool CConnection::IsWritable() const {
  return stage == EStage::kGone || (stage == EStage::kOpen && outstanding < static_cast<size_t>(socket->sendBytes));
}

// What was received and never read is lost, which the peer is told by a reset.
void CConnection::CloseLibraryEnd() {
  socket = nullptr;
  if (stage == EStage::kGone) {
    return;
  }
  if (stage == EStage::kConnecting || !received.empty()) {
    toOutside.queue.clear();
    Push(toOutside, EKind::kReset);
    stage = EStage::kGone;
  } else {
    Push(toOutside, EKind::kEnd);
  }
}

template <class Change>
void CConnection::ChangeHandlers(Change change) {
  auto changed = std::make_shared<SHandlers>(*handlers);
  change(*changed);
  handlers = std::move(changed);
}

void CConnection::OnData(std::function<void(std::span<const uint8_t>)> handler) {
  ChangeHandlers([&](SHandlers& changed) { changed.onData = std::move(handler); });
}

void CConnection::OnEnd(std::function<void()> handler) {
  ChangeHandlers([&](SHandlers& changed) { changed.onEnd = std::move(handler); });
}

void CConnection::OnReset(std::function<void()> handler) {
  ChangeHandlers([&](SHandlers& changed) { changed.onReset = std::move(handler); });
}

void CConnection::Write(std::span<const uint8_t> data) {
  if (!hasOutsideEnded && !isOutsideClosed && !hasVanished && !data.empty()) {
    Push(toLibrary, EKind::kData, data);
  }
}

size_t CConnection::Unsent() const {
  size_t bytes = 0;
  for (const SMessage& message : toLibrary.queue) {
    bytes += message.data.size();
  }
  return bytes;
}

void CConnection::StopReading(bool on) {
  isStopped = on;
  if (!on) {
    TakeHeld();
    toOutside.isHeld = false;
    Pump(toOutside);
  }
}

void CConnection::HalfClose() {
  if (!std::exchange(hasOutsideEnded, true) && !isOutsideClosed && !hasVanished) {
    Push(toLibrary, EKind::kEnd);
  }
}

void CConnection::Close() {
  if (!held.empty()) {
    Reset();
    return;
  }
  HalfClose();
  isOutsideClosed = true;
  DropHandlers();
}

void CConnection::Reset() {
  if (isOutsideClosed || hasVanished) {
    return;
  }
  toLibrary.queue.clear();
  toLibrary.isHeld = false;
  held.clear();
  Push(toLibrary, EKind::kReset);
  isOutsideClosed = true;
  DropHandlers();
}

void CConnection::Vanish(bool back) {
  hasVanished = true;
  isBack = back;
  toLibrary.queue.clear();
  held.clear();
  DropHandlers();
}

}  // namespace zelk::sim
