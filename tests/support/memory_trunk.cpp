// SPDX-License-Identifier: GPL-2.0-only
#include "support/memory_trunk.h"

#include <utility>

#include "card/event_router.h"

namespace zelk {

CUnopenedTrunk::CUnopenedTrunk(CCard& trunkCard, ICardHandlers& cardHandlers, uint32_t trunkIndex)
    : card(trunkCard), handlers(cardHandlers), index(trunkIndex) {}

CUnopenedTrunk::~CUnopenedTrunk() {
  ReleaseController();
}

void CUnopenedTrunk::MakeController(int32_t nodeType, int32_t switchType) {
  CTrunk& trunk = Trunk();
  trunk.nodeType = nodeType;
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  trunk.controller = CPriController::Create(*this, index, nodeType, switchType);
}

void CUnopenedTrunk::ReleaseController() {
  CTrunk& trunk = Trunk();
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  trunk.controller.reset();
}

void CUnopenedTrunk::Receive(const PriFrame& frame) {
  CTrunk& trunk = Trunk();
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  SPriEvent event;
  if (trunk.controller != nullptr && trunk.controller->Receive(frame.data(), frame.size(), event)) {
    Deliver(std::move(event));
  }
}

bool CUnopenedTrunk::RunTimers() {
  CTrunk& trunk = Trunk();
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  SPriEvent event;
  const bool hasEvent = trunk.controller != nullptr && trunk.controller->RunTimers(event);
  if (hasEvent) {
    Deliver(std::move(event));
  }
  return hasEvent;
}

bool CUnopenedTrunk::IsTimerPending() {
  CTrunk& trunk = Trunk();
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  SUnixTime due{};
  return trunk.controller != nullptr && trunk.controller->NextTimer(due);
}

void CUnopenedTrunk::Deliver(SPriEvent event) {
  event.channel = channelSeen.value_or(event.channel);
  RouteEvent({card, &handlers, Trunk(), index}, event, caller);
}

int CUnopenedTrunk::OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  writtenTrunk = trunk;
  written.emplace_back(frame, frame + length);
  if (const auto once = std::exchange(onFrame, nullptr)) {
    once();
  }
  return static_cast<int>(length);
}

CMemoryTrunk::CMemoryTrunk(CCard& card, ICardHandlers& handlers, uint32_t trunkIndex, int32_t ownNodeType)
    : us(card, handlers, trunkIndex),
      them(ownNodeType == kNetworkSide ? kUserSide : kNetworkSide, kEuroIsdnE1, trunkIndex),
      peer(them.controller.get()) {
  them.acknowledgesAnswers = false;
  us.MakeController(ownNodeType);
}

void CMemoryTrunk::Run() {
  while (!us.written.empty() || !them.written.empty()) {
    ToPeer();
    ToUs();
  }
}

void CMemoryTrunk::ToPeer() {
  while (!us.written.empty()) {
    const PriFrame frame = std::move(us.written.front());
    us.written.pop_front();
    them.Receive(frame);
  }
}

void CMemoryTrunk::ToUs() {
  while (!them.written.empty()) {
    PriFrame frame = std::move(them.written.front());
    them.written.pop_front();
    if (alter) {
      alter(frame);
    }
    us.Receive(frame);
  }
}

void CMemoryTrunk::RunTimers(uint32_t nowMs) {
  for (bool isDue = true; isDue;) {
    isDue = them.RunTimers();
    isDue = us.RunTimers() || isDue;
  }
  Run();
  us.Pass(nowMs);
}

SPriEvent CMemoryTrunk::PeerEvent(int code) const {
  const SPriEvent* event = them.FindLast(code);
  return event == nullptr ? SPriEvent() : *event;
}

}  // namespace zelk
