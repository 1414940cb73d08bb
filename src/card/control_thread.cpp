// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_thread.h"

#include <algorithm>
#include <exception>

#include "card/control_messages.h"
#include "card/event_router.h"
#include "card/timer_wait.h"
#include "platform/clock.h"
#include "runtime/status_page.h"

namespace zelk {

namespace {

constexpr uint32_t kSilenceMs = 1000;
constexpr uint32_t kClosedPauseMs = 100;
constexpr uint32_t kErrorPauseMs = 10;
constexpr int32_t kLookMs = 20;
constexpr uint32_t kBacklogGatherMs = 1;

// Memory that runs out ends the act, not the thread.
template <class Act>
void Guarded(Act act) {
  try {
    act();
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace

CControlThread::CControlThread(std::shared_ptr<CCardCore> sharedCore, std::shared_ptr<CSocket> openSocket,
                               uint32_t generationNumber)
    : core(std::move(sharedCore)), socket(std::move(openSocket)), generation(generationNumber), parser(*this) {}

void CControlThread::RequestStop() {
  stop.Set();
}

void CControlThread::Run() {
  const auto request = InformationRequest();
  socket->Send(request.data(), request.size());
  lastDataMs = TickMs();
  lastTimersMs = lastDataMs;
  while (!stop.IsSet()) {
    LookForHandlers();
    Turn();
  }
  core->ReleaseLeftovers(generation);
}

void CControlThread::Turn() {
  if (!socket->IsOpen()) {
    stop.SleepFor(kClosedPauseMs);
    return;
  }
  const EWait woken = Wait(WaitMs());
  const bool isWatched = StatusPage().Get() != nullptr;
  const uint32_t begin = isWatched ? TickMs() : 0;
  Attend(woken);
  if (isWatched) {
    StatusPage().NoteTurn(core->number, kStatusControl, TickMs() - begin);
  }
}

void CControlThread::Attend(EWait woken) {
  switch (woken) {
    case EWait::kError:
      return OnWaitError();
    case EWait::kTimeout:
      return OnTimeout();
    case EWait::kReady:
      return OnReadable();
  }
}

// Handlers are set without a word to this thread: it looks for them. That changes no wait for bytes or timers.
EWait CControlThread::Wait(int32_t waitMs) {
  const uint32_t start = TickMs();
  while (!hasSeenHandlers) {
    const auto waited = static_cast<int64_t>(TickMs() - start);
    const bool isLast = waitMs != kWaitForever && waitMs - waited <= kLookMs;
    const EWait result =
        socket->WaitReadable(isLast ? static_cast<int32_t>(std::max<int64_t>(waitMs - waited, 0)) : kLookMs);
    if (isLast || result != EWait::kTimeout || stop.IsSet()) {
      return result;
    }
    LookForHandlers();
  }
  return socket->WaitReadable(waitMs);
}

void CControlThread::LookForHandlers() {
  if (!hasSeenHandlers && core->handlers != nullptr) {
    hasSeenHandlers = true;
    Guarded([this] { core->ReportEarlyDchannels(stop); });
  }
}

int32_t CControlThread::WaitMs() {
  if (!IsRunning()) {
    return kWaitForever;
  }
  const int32_t priWaitMs = PriWaitMs();
  const ICardHandlers* handlers = core->handlers;
  const bool awaitsTime = handlers != nullptr && handlers->AwaitsTime();
  const bool isLongest = priWaitMs == kTimerWaitMs || (priWaitMs == kWaitForever && awaitsTime);
  return isLongest ? MsToBeat(TickMs()) : priWaitMs;
}

int32_t CControlThread::PriWaitMs() {
  const SUnixTime* earliest = nullptr;
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    LookForTimer(trunk);
    const std::optional<SUnixTime>& due = timers[trunk].earliest;
    if (due && (earliest == nullptr || IsEarlier(*due, *earliest))) {
      earliest = &*due;
    }
  }
  return earliest != nullptr ? TimerWaitMs(*earliest, UnixNow()) : kWaitForever;
}

// The trunk's lock is taken only when somebody has been at its controller: every call of libpri counts as a move.
void CControlThread::LookForTimer(uint32_t trunk) {
  CTrunk& entry = core->trunks[trunk];
  STimers& known = timers[trunk];
  const uint32_t moves = entry.timerMoves.load(std::memory_order_acquire);
  if (moves == known.moves) {
    return;
  }
  known.moves = moves;
  known.earliest.reset();
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  SUnixTime due{};
  if (entry.controller != nullptr && entry.controller->NextTimer(due)) {
    known.earliest = due;
  }
}

void CControlThread::OnWaitError() {
  OnTimeout();
  stop.SleepFor(kErrorPauseMs);
}

void CControlThread::OnTimeout() {
  if (IsRunning()) {
    RunTimers();
    CheckSilence();
  }
}

void CControlThread::OnReadable() {
  const int received = socket->Receive(buffer.data(), buffer.size());
  if (received < 0) {
    CheckSilence();
  }
  if (received <= 0) {
    stop.SleepFor(kErrorPauseMs);
    return;
  }
  const uint32_t sinceReadBeforeMs = TickMs() - lastDataMs;
  lastDataMs += sinceReadBeforeMs;
  const uint32_t gatherMs = GatherMs(sinceReadBeforeMs, static_cast<size_t>(received), buffer.size());
  // What is sent while the card is busy goes together: most of what a message costs is its segment.
  const bool holdsBack = gatherMs != 0 && socket->SetHoldsBack(true);
  parser.Feed(buffer.data(), static_cast<size_t>(received));
  // A card that never stops sending must not hold libpri's timers back.
  if (IsRunning() && TickMs() - lastTimersMs >= static_cast<uint32_t>(kTimerWaitMs)) {
    RunTimers();
  }
  Gather(IsBacklogged() ? std::min(gatherMs, kBacklogGatherMs) : gatherMs);
  if (holdsBack) {
    socket->SetHoldsBack(false);
  }
}

// Layer 2 sends one window of frames and waits for the acknowledgement: with long pauses a queue would grow.
bool CControlThread::IsBacklogged() const {
  return std::any_of(std::begin(core->trunks), std::end(core->trunks),
                     [](const CTrunk& trunk) { return trunk.isBacklogged.load(std::memory_order_relaxed); });
}

void CControlThread::Gather(uint32_t milliseconds) {
  if (milliseconds != 0 && SleepsAreExact()) {
    stop.SleepFor(milliseconds);
  }
}

void CControlThread::RunTimers() {
  lastTimersMs = TickMs();
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    RunTrunkTimers(trunk);
  }
  ICardHandlers* handlers = core->handlers;
  if (handlers != nullptr && !stop.IsSet()) {
    Guarded([&] { handlers->OnTime(core->owner, lastTimersMs, stop); });
  }
}

bool CControlThread::IsTimerDue(uint32_t trunk) {
  LookForTimer(trunk);
  const std::optional<SUnixTime>& due = timers[trunk].earliest;
  return due && !IsEarlier(UnixNow(), *due);
}

// A card whose trunks only wait for their next timer is woken ten times a second: that costs no lock.
void CControlThread::RunTrunkTimers(uint32_t trunk) {
  if (!IsTimerDue(trunk)) {
    return;
  }
  CTrunk& entry = core->trunks[trunk];
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  Guarded([&]() ZELK_NO_THREAD_SAFETY_ANALYSIS {
    SPriEvent event;
    if (!stop.IsSet() && entry.controller != nullptr && entry.controller->RunTimers(event)) {
      RouteEvent({core->owner, core->handlers, entry, trunk}, event, stop);
    }
  });
  AfterCallback(entry);
}

// Held in a callback for too long, the thread finds its generation being closed: the controller that was left to it
// goes before an application thread can take the trunk and place a call there.
void CControlThread::AfterCallback(CTrunk& trunk) {
  if (!IsRunning()) {
    CCardCore::ReleaseLeftover(trunk, generation);
  }
}

void CControlThread::CheckSilence() {
  if (!stop.IsSet() && socket->IsOpen() && TickMs() - lastDataMs >= kSilenceMs) {
    Guarded([this] { core->ReportCardDown(stop); });
    socket->Close();
  }
}

template <class Act>
void CControlThread::Report(Act act) {
  ICardHandlers* handlers = core->handlers;
  if (handlers != nullptr && !stop.IsSet()) {
    Guarded([&] { act(*handlers); });
  }
}

void CControlThread::OnInformation(const uint8_t (&body)[kCardInformationBytes]) {
  if (!stop.IsSet()) {
    Guarded([&] { core->facts.Take(body); });
  }
}

uint32_t CControlThread::StatusTrunkCount() const {
  return core->facts.trunkCount;
}

void CControlThread::OnLineStatus(uint32_t trunk, uint8_t status) {
  if (!stop.IsSet() && core->trunks[trunk].lineStatus.exchange(status) != status) {
    StatusPage().LineIs(core->number, trunk, status);
    Report([&](ICardHandlers& handlers) { handlers.OnLineStatus(trunk, status); });
  }
}

void CControlThread::OnRegister(uint8_t trunk, uint16_t registerNumber, uint8_t value) {
  Report([&](ICardHandlers& handlers) { handlers.OnRegister(trunk, registerNumber, value); });
}

void CControlThread::OnFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  hdlcRules[trunk].OnGoodFrame();
  if (!IsRunning()) {
    return;
  }
  CTrunk& entry = core->trunks[trunk];
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  Guarded([&]() ZELK_NO_THREAD_SAFETY_ANALYSIS {
    SPriEvent event;
    if (stop.IsSet() || entry.controller == nullptr || !entry.controller->Receive(frame, length, event)) {
      return;
    }
    entry.capture.Write('I', frame, length - kFcsBytes);
    RouteEvent({core->owner, core->handlers, entry, trunk}, event, stop);
  });
  AfterCallback(entry);
}

void CControlThread::OnHdlcError(uint8_t trunk, uint8_t code) {
  if (trunk >= kMaxTrunks || stop.IsSet()) {
    return;
  }
  if (SStatusTrunk* const shown = StatusPage().Trunk(core->number, trunk)) {
    StatusAdd(shown->hdlcErrors);
  }
  switch (hdlcRules[trunk].OnError(core->trunks[trunk].lineStatus, TickMs())) {
    case EHdlcReport::kError:
      return Report([&](ICardHandlers& handlers) { handlers.OnHdlcError(trunk, code); });
    case EHdlcReport::kLinkReset:
      return Report([&](ICardHandlers& handlers) { handlers.OnLinkReset(core->owner, trunk, code); });
    case EHdlcReport::kNone:
      return;
  }
}

}  // namespace zelk
