// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/call.h"

#include <algorithm>

namespace cardsim {

CCall::CCall(ECallDirection callDirection, int cardIndex, int trunkIndex, const IReactor& signallingReactor,
             CAudioPort& audioPort, std::weak_ptr<ICallControl> owner)
    : direction(callDirection),
      card(cardIndex),
      trunk(trunkIndex),
      reactor(signallingReactor),
      audio(audioPort),
      control(std::move(owner)),
      recorder(std::make_shared<CRecorder>()) {}

int CCall::Timeslot() const {
  const std::lock_guard guard(lock);
  return timeslot;
}

std::string CCall::Calling() const {
  const std::lock_guard guard(lock);
  return calling;
}

std::string CCall::Called() const {
  const std::lock_guard guard(lock);
  return called;
}

int CCall::Cause() const {
  const std::lock_guard guard(lock);
  return cause;
}

EClearedBy CCall::ClearedBy() const {
  const std::lock_guard guard(lock);
  return clearedBy;
}

std::vector<SCallStep> CCall::Steps() const {
  const std::lock_guard guard(lock);
  return steps;
}

bool CCall::Has(ESimCallState state) const {
  return std::any_of(steps.begin(), steps.end(), [&](const SCallStep& step) { return step.state == state; });
}

bool CCall::Reached(ESimCallState state) const {
  const std::lock_guard guard(lock);
  return Has(state);
}

bool CCall::WaitState(ESimCallState state, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  changed.wait_for(guard, timeout, [&] { return Has(state) || Has(ESimCallState::kEnded); });
  return Has(state);
}

void CCall::Alert() {
  if (const auto owner = control.lock()) {
    owner->Alert(shared_from_this());
  }
}

void CCall::Answer() {
  if (const auto owner = control.lock()) {
    owner->Answer(shared_from_this());
  }
}

void CCall::Progress(int progressCause) {
  if (const auto owner = control.lock()) {
    owner->Progress(shared_from_this(), progressCause);
  }
}

void CCall::Hangup(int clearingCause) {
  if (const auto owner = control.lock()) {
    owner->Hangup(shared_from_this(), clearingCause);
  }
}

void CCall::SendMessage(std::uint8_t type, Bytes elements) {
  if (const auto owner = control.lock()) {
    owner->SendMessage(shared_from_this(), type, std::move(elements));
  }
}

void CCall::Play(AudioSource next) {
  const std::lock_guard guard(lock);
  source = std::move(next);
  if (audioOpen) {
    audio.Play(trunk, timeslot, source);
  }
}

void CCall::SendDigits(std::string_view digits, int onMs, int offMs, double level) {
  PlayBytes(RenderDtmf(digits, onMs, offMs, level));
}

bool CCall::WaitPlayed(std::chrono::milliseconds timeout) const {
  AudioSource playing;
  {
    const std::lock_guard guard(lock);
    playing = source;
  }
  return audio.WaitPlayed(playing, timeout);
}

std::optional<std::size_t> CCall::WaitMessage(const Wanted& wanted, std::size_t from,
                                              std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock);
  std::size_t looked = from;
  const auto isThere = [&] {
    while (looked < messages.size() && !wanted(messages[looked])) {
      ++looked;
    }
    return looked < messages.size();
  };
  changed.wait_for(guard, timeout, [&] { return isThere() || Has(ESimCallState::kEnded); });
  return isThere() ? std::optional(looked) : std::nullopt;
}

std::vector<SQ931Message> CCall::Messages() const {
  const std::lock_guard guard(lock);
  return messages;
}

void CCall::AddMessage(const SQ931Message& message) {
  constexpr std::size_t kMost = 1000;  // of a call that is flooded the first tell the story
  {
    const std::lock_guard guard(lock);
    if (messages.size() == kMost) {
      return;
    }
    messages.push_back(message);
  }
  changed.notify_all();
}

void CCall::Step(ESimCallState state) {
  {
    const std::lock_guard guard(lock);
    steps.push_back({state, reactor.Now()});
  }
  changed.notify_all();
}

void CCall::SetCleared(EClearedBy by, int clearingCause) {
  const std::lock_guard guard(lock);
  if (clearedBy == EClearedBy::kNobody) {
    clearedBy = by;
    cause = clearingCause;
  }
}

void CCall::SetTimeslot(int value) {
  const std::lock_guard guard(lock);
  timeslot = value;
}

void CCall::SetNumbers(const std::string& callingNumber, const std::string& calledNumber) {
  const std::lock_guard guard(lock);
  calling = callingNumber;
  called = calledNumber;
}

}  // namespace cardsim
