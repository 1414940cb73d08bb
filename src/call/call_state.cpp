// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_state.h"

#include <algorithm>
#include <cassert>

#include "runtime/status_page.h"

namespace zelk {

namespace {

// libpri clears a lost call within its timers; a trunk that flaps faster than that leaves a few more.
constexpr size_t kMaxLostCalls = 16;

constexpr bool IsPermittedFromEverywhere(ECallChange change) {
  for (size_t from = 0; from < kCallStates; ++from) {
    if (NextState(static_cast<ECallState>(from), change) == SCallEdges::kNo) {
      return false;
    }
  }
  return true;
}

// Whatever the network, the cards and the order of the application's calls bring, nothing of it is refused.
static_assert(IsPermittedFromEverywhere(ECallChange::kOffer) && IsPermittedFromEverywhere(ECallChange::kConnect) &&
              IsPermittedFromEverywhere(ECallChange::kEnd) && IsPermittedFromEverywhere(ECallChange::kLose) &&
              IsPermittedFromEverywhere(ECallChange::kTrunkUp));

}  // namespace

CCallState::CCallState(IEchoSwitch& echoSwitch, int32_t direction) : echo(echoSwitch) {
  view.direction = direction;
  lostCalls.reserve(kMaxLostCalls);
}

void CCallState::ShowIn(SStatusChannel* place) {
  const CScopedLock<CMutex> held(callLock);
  shown = place;
}

SCallView CCallState::View() const {
  const CScopedLock<CMutex> held(callLock);
  return view;
}

void CCallState::Offer(PriCall call) {
  const CScopedLock<CMutex> held(callLock);
  Move(call != nullptr ? ECallChange::kOffer : ECallChange::kEnd);
  view.callHandle = call;
  view.connected = false;
}

bool CCallState::Dial(PriCall call) {
  const CScopedLock<CMutex> held(callLock);
  const bool isFree = view.callHandle == nullptr && call != nullptr;
  assert(isFree);
  if (!isFree || !Move(ECallChange::kDial)) {
    return false;
  }
  view.callHandle = call;
  return true;
}

void CCallState::Connect() {
  const CScopedLock<CMutex> held(callLock);
  Move(ECallChange::kConnect);
  view.connected = true;
}

void CCallState::Connect(bool withEcho) {
  const CScopedLock<CMutex> held(callLock);
  Move(ECallChange::kConnect);
  view.connected = true;
  echo.SwitchEcho(withEcho);
}

PriCall CCallState::BeginHangup() {
  const CScopedLock<CMutex> held(callLock);
  view.direction = 0;
  return view.callHandle;
}

bool CCallState::Clear(PriCall call) {
  const CScopedLock<CMutex> held(callLock);
  return call != nullptr && call == view.callHandle && Move(ECallChange::kClear);
}

void CCallState::End() {
  const CScopedLock<CMutex> held(callLock);
  Move(ECallChange::kEnd);
  Release();
  view.direction = 0;
}

void CCallState::Lose() {
  const CScopedLock<CMutex> held(callLock);
  Move(ECallChange::kLose);
  RememberLost();
  Release();
  view.linkState = -1;
  Show();
}

bool CCallState::TrunkUp() {
  const CScopedLock<CMutex> held(callLock);
  if (view.linkState == 1) {
    return false;
  }
  Move(ECallChange::kTrunkUp);
  view.linkState = 1;
  Show();
  return true;
}

void CCallState::CloseChannel() {
  const CScopedLock<CMutex> held(callLock);
  view.linkState = -1;
  Show();
}

bool CCallState::IsLost(PriCall call) const {
  const CScopedLock<CMutex> held(callLock);
  return call != nullptr && std::find(lostCalls.begin(), lostCalls.end(), call) != lostCalls.end();
}

void CCallState::ForgetLost(PriCall call) {
  const CScopedLock<CMutex> held(callLock);
  std::erase(lostCalls, call);
}

void CCallState::ForgetAllLost() {
  const CScopedLock<CMutex> held(callLock);
  lostCalls.clear();
}

bool CCallState::Move(ECallChange change) {
  const ECallState to = NextState(view.state, change);
  const bool isPermitted = to != SCallEdges::kNo;
  assert(isPermitted);
  if (isPermitted && view.state != to) {
    view.state = to;
    Show();
  }
  return isPermitted;
}

void CCallState::Show() {
  if (shown == nullptr) {
    return;
  }
  StatusSet(shown->isUp, view.linkState == 1 ? 1 : 0);
  StatusSet(shown->changed, StatusNow());
  const auto state = static_cast<uint32_t>(view.state);
  if (shown->state.exchange(state, std::memory_order_relaxed) == state) {
    return;
  }
  if (view.state == ECallState::kOffered) {
    StatusAdd(shown->offered);
  } else if (view.state == ECallState::kDialled) {
    StatusAdd(shown->dialled);
  } else if (view.state == ECallState::kConnected) {
    StatusAdd(shown->connected);
  }
}

void CCallState::Release() {
  view.callHandle = nullptr;
  view.connected = false;
  echo.SwitchEcho(false);
}

void CCallState::RememberLost() {
  const PriCall call = view.callHandle;
  if (call == nullptr || std::find(lostCalls.begin(), lostCalls.end(), call) != lostCalls.end()) {
    return;
  }
  if (lostCalls.size() == kMaxLostCalls) {
    lostCalls.erase(lostCalls.begin());
  }
  lostCalls.push_back(call);
}

}  // namespace zelk
