// SPDX-License-Identifier: GPL-2.0-only
#include "support/pri_pair.h"

#include <algorithm>
#include <stdexcept>

namespace zelk {

namespace {

bool Deliver(CPriSide& from, CPriSide& to) {
  if (from.written.empty()) {
    return false;
  }
  const PriFrame frame = std::move(from.written.front());
  from.written.pop_front();
  to.Receive(frame);
  return true;
}

}  // namespace

CPriSide::CPriSide(int nodeType, int switchType, uint32_t trunk)
    : controller(CPriController::Create(*this, trunk, nodeType, switchType)) {}

int CPriSide::OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  lastTrunk = trunk;
  written.emplace_back(frame, frame + length);
  return static_cast<int>(length);
}

bool CPriSide::Receive(const PriFrame& frame) {
  SPriEvent event;
  const bool hasEvent = controller->Receive(frame.data(), frame.size(), event);
  if (hasEvent) {
    Note(event);
  }
  return hasEvent;
}

bool CPriSide::RunTimers() {
  SPriEvent event;
  const bool hasEvent = controller->RunTimers(event);
  if (hasEvent) {
    Note(event);
  }
  return hasEvent;
}

void CPriSide::Note(const SPriEvent& event) {
  events.push_back(event);
  if (event.code == kPriAnswer && acknowledgesAnswers) {
    controller->ConnectAck(event.call, event.channel);
  }
}

const SPriEvent* CPriSide::Find(int code) const {
  const auto found =
      std::find_if(events.begin(), events.end(), [code](const SPriEvent& event) { return event.code == code; });
  return found == events.end() ? nullptr : &*found;
}

const SPriEvent* CPriSide::FindLast(int code) const {
  const auto found =
      std::find_if(events.rbegin(), events.rend(), [code](const SPriEvent& event) { return event.code == code; });
  return found == events.rend() ? nullptr : &*found;
}

PriCall CPriSide::Ring() const {
  const SPriEvent* ring = Find(kPriRing);
  return ring == nullptr ? nullptr : ring->call;
}

bool CPriPair::Step() {
  return Deliver(user, network) || Deliver(network, user);
}

void CPriPair::Run(int frames) {
  RunTimers();
  while (frames-- > 0 && Step()) {
    RunTimers();
  }
}

PriCall CPriPair::Dial(CPriSide& from, int timeslot) {
  const PriCall call = from.controller->NewCall();
  if (from.controller->Setup(call, timeslot, "5551234", "5559876", kNationalIsdnNumber) != 0) {
    throw std::runtime_error("libpri sends no SETUP");
  }
  Run();
  return call;
}

void CPriPair::RunTimers() {
  for (CPriSide* side : {&user, &network}) {
    while (side->RunTimers()) {
    }
  }
}

}  // namespace zelk
