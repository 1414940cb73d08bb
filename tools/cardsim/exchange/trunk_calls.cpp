// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/trunk_calls.h"

extern "C" {
#include <libpri.h>
}

#include <algorithm>

namespace cardsim {
namespace {

constexpr int kCauseNormal = 16;
constexpr int kCauseNoCircuit = 34;
constexpr int kCauseTemporaryFailure = 41;
constexpr int kCauseChannelUnavailable = 44;

}  // namespace

CTrunkCalls::CTrunkCalls(int cardIndex, int trunkIndex, IReactor& signallingReactor, CAudioPort& audioPort,
                         CPriPeer& priPeer, SHandlers eventHandlers)
    : card(cardIndex),
      trunk(trunkIndex),
      reactor(signallingReactor),
      audio(audioPort),
      peer(priPeer),
      handlers(std::move(eventHandlers)) {}

Call CTrunkCalls::Place(SCallRequest request) {
  auto call = std::make_shared<CCall>(ECallDirection::kToLibrary, card, trunk, reactor, audio, weak_from_this());
  call->SetNumbers(request.calling, request.called);
  reactor.Post([self = shared_from_this(), call, wanted = std::move(request)] { self->Send(call, wanted); });
  return call;
}

void CTrunkCalls::Send(const Call& call, const SCallRequest& request) {
  const int timeslot = request.timeslot == SCallRequest::kAutoTimeslot ? timeslots.FirstIdle() : request.timeslot;
  const bool named = timeslot != SCallRequest::kAnyChannel;
  call->farEnd = request.farEnd;
  if (timeslot == 0 && request.timeslot == SCallRequest::kAutoTimeslot) {
    call->SetCleared(EClearedBy::kNetwork, kCauseNoCircuit);
    End(call);
    return;
  }
  if (named && IsVoiceTimeslot(timeslot) && !TakeTimeslot(call, timeslot)) {
    call->SetCleared(EClearedBy::kNetwork, kCauseChannelUnavailable);
    End(call);
    return;
  }
  call->handle = peer.Setup({timeslot, request.exclusive, request.calling, request.called, request.numberPlan,
                             request.redirecting, request.redirectingReason});
  if (call->handle == nullptr) {
    call->SetCleared(EClearedBy::kNetwork, kCauseTemporaryFailure);
    End(call);
    return;
  }
  Keep(call);
  call->Step(ESimCallState::kSetup);
  OpenAudio(call, EAudioFrom::kSetup);
  if (request.giveUpAfter) {
    Later(call, *request.giveUpAfter, [this](const Call& waiting) {
      if (!waiting->Reached(ESimCallState::kConnected)) {
        Disconnect(waiting, kCauseNormal);
      }
    });
  }
}

void CTrunkCalls::OnEvent(const SPriEvent& event) {
  if (event.code == PRI_EVENT_RING) {
    OnRing(event);
    return;
  }
  const Call call = Find(event.call);
  if (call == nullptr) {
    // A call given up here may still be cleared by libpri: it wants its hang-up all the same.
    if (event.code == PRI_EVENT_HANGUP || event.code == PRI_EVENT_HANGUP_REQ) {
      peer.Hangup(event.call, event.cause);
    }
    return;
  }
  if (call->Timeslot() < 0 && IsVoiceTimeslot(event.timeslot) && TakeTimeslot(call, event.timeslot)) {
    OpenAudio(call, EAudioFrom::kSetup);
  }
  Follow(call, event);
}

void CTrunkCalls::Follow(const Call& call, const SPriEvent& event) {
  switch (event.code) {
    case PRI_EVENT_SETUP_ACK:
      call->Step(ESimCallState::kSetupAck);
      break;
    case PRI_EVENT_PROCEEDING:
      call->Step(ESimCallState::kProceeding);
      break;
    case PRI_EVENT_PROGRESS:
      call->Step(ESimCallState::kProgress);
      break;
    case PRI_EVENT_RINGING:
      call->Step(ESimCallState::kAlerting);
      break;
    case PRI_EVENT_ANSWER:
      peer.ConnectAcknowledge(call->handle);
      OnConnected(call);
      break;
    case PRI_EVENT_CONNECT_ACK:
      OnConnected(call);
      break;
    case PRI_EVENT_HANGUP_REQ:
    case PRI_EVENT_HANGUP:
    case PRI_EVENT_HANGUP_ACK:
      OnCleared(call, event);
      break;
    default:
      break;
  }
}

void CTrunkCalls::OnRing(const SPriEvent& event) {
  if (Find(event.call) != nullptr) {
    return;
  }
  auto call = std::make_shared<CCall>(ECallDirection::kFromLibrary, card, trunk, reactor, audio, weak_from_this());
  call->handle = event.call;
  call->SetNumbers(event.calling, event.called);
  Keep(call);
  call->Step(ESimCallState::kSetup);
  const int timeslot = event.timeslot < 0 ? timeslots.FirstIdle() : event.timeslot;
  if (!IsVoiceTimeslot(timeslot) || !TakeTimeslot(call, timeslot)) {
    handlers.arrived(call);
    Disconnect(call, kCauseChannelUnavailable);
    return;
  }
  const SAnswerPlan plan = handlers.plan(*call);
  call->farEnd = plan.farEnd;
  OpenAudio(call, EAudioFrom::kSetup);
  handlers.arrived(call);
  FollowPlan(call, plan);
}

void CTrunkCalls::FollowPlan(const Call& call, const SAnswerPlan& plan) {
  if (plan.refuseCause) {
    Later(call, plan.refuseAfter,
          [this, cause = *plan.refuseCause](const Call& refused) { Disconnect(refused, cause); });
  }
  if (plan.proceeding) {
    peer.Proceeding(call->handle, call->Timeslot());
    call->Step(ESimCallState::kProceeding);
  }
  if (plan.progressAfter) {
    Later(call, *plan.progressAfter, [this, cause = plan.progressCause](const Call& c) { Progress(c, cause); });
  }
  if (plan.alertAfter) {
    Later(call, *plan.alertAfter, [this](const Call& c) { Alert(c); });
  }
  if (plan.answerAfter) {
    Later(call, *plan.answerAfter, [this](const Call& c) { Answer(c); });
  }
}

void CTrunkCalls::OnConnected(const Call& call) {
  if (call->Reached(ESimCallState::kConnected)) {
    return;
  }
  // The timeslot opens before anyone can learn that the call is connected.
  OpenAudio(call, EAudioFrom::kConnect);
  call->Step(ESimCallState::kConnected);
  if (call->farEnd.hangupAfter) {
    Later(call, *call->farEnd.hangupAfter, [this](const Call& c) { Disconnect(c, c->farEnd.hangupCause); });
  }
}

void CTrunkCalls::OnCleared(const Call& call, const SPriEvent& event) {
  if (!call->hungUpHere) {
    call->SetCleared(EClearedBy::kLibrary, event.cause);
  }
  CloseAudio(call);
  if (event.code == PRI_EVENT_HANGUP_REQ) {
    call->Step(ESimCallState::kDisconnecting);
    if (!ReleasesAtOnce(call)) {
      peer.Hangup(call->handle, event.cause);
    }
    if (!peer.Knows(call->handle)) {
      End(call);
    }
    return;
  }
  // After a HANGUP the call is libpri's until it is hung up here; a HANGUP_ACK comes when it has been freed.
  if (event.code == PRI_EVENT_HANGUP) {
    peer.Hangup(call->handle, event.cause);
  }
  End(call);
}

// The answers to a DISCONNECT that leave nothing to be cleared; libpri would send a RELEASE.
bool CTrunkCalls::ReleasesAtOnce(const Call& call) {
  constexpr std::uint8_t kReleaseComplete = 0x5A;
  constexpr std::uint8_t kStatus = 0x7D;
  switch (call->farEnd.clearing) {
    case EClearing::kRelease:
      return false;
    case EClearing::kReleaseComplete:
      peer.SendForCall(call->handle, kReleaseComplete, Bytes{0x08, 0x02, 0x81, 0x90});  // cause 16
      break;
    case EClearing::kUnknownCall:
      peer.SendForCall(call->handle, kReleaseComplete, Bytes{0x08, 0x02, 0x81, 0xD1});  // cause 81
      break;
    case EClearing::kStatusNull:
      peer.SendForCall(call->handle, kStatus, Bytes{0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00});  // cause 101, state 0
      break;
  }
  return peer.Forget(call->handle);
}

void CTrunkCalls::Disconnect(const Call& call, int cause) {
  if (Find(call->handle) != call || call->hungUpHere) {
    return;
  }
  call->hungUpHere = true;
  call->SetCleared(EClearedBy::kNetwork, cause);
  CloseAudio(call);
  call->Step(ESimCallState::kDisconnecting);
  peer.Hangup(call->handle, cause);
  EndForgotten();  // refused with RELEASE COMPLETE: nothing more will come
}

void CTrunkCalls::End(const Call& call) {
  CloseAudio(call);
  std::erase(calls, call);
  call->handle = nullptr;
  timeslots.Free(call);
  call->Step(ESimCallState::kEnded);
  handlers.ended(call);
}

void CTrunkCalls::EndForgotten() {
  for (std::size_t i = calls.size(); i-- > 0;) {
    if (const Call call = calls[i]; call->hungUpHere && !peer.Knows(call->handle)) {
      End(call);
    }
  }
}

void CTrunkCalls::LoseAll() {
  while (!calls.empty()) {
    const Call call = calls.front();
    call->SetCleared(EClearedBy::kLost, kCauseTemporaryFailure);
    End(call);
  }
}

void CTrunkCalls::Alert(Call call) {
  PostFor(std::move(call), [this](const Call& c) {
    if (!c->Reached(ESimCallState::kAlerting) && peer.Alerting(c->handle, c->Timeslot())) {
      c->Step(ESimCallState::kAlerting);
    }
  });
}

void CTrunkCalls::Answer(Call call) {
  PostFor(std::move(call), [this](const Call& c) {
    if (!c->Reached(ESimCallState::kConnected)) {
      peer.Connect(c->handle, c->Timeslot());
    }
  });
}

void CTrunkCalls::Progress(Call call, int cause) {
  PostFor(std::move(call), [this, cause](const Call& c) {
    if (peer.Progress(c->handle, c->Timeslot(), cause)) {
      c->Step(ESimCallState::kProgress);
    }
  });
}

void CTrunkCalls::SendMessage(Call call, std::uint8_t type, Bytes elements) {
  PostFor(std::move(call),
          [this, type, elements = std::move(elements)](const Call& c) { peer.SendForCall(c->handle, type, elements); });
}

void CTrunkCalls::Hangup(Call call, int cause) {
  PostFor(std::move(call), [this, cause](const Call& c) { Disconnect(c, cause); });
}

void CTrunkCalls::PostFor(Call call, Action action) {
  reactor.Post([self = shared_from_this(), call = std::move(call), action = std::move(action)] {
    if (self->Find(call->handle) == call && !call->hungUpHere) {
      action(call);
    }
  });
}

void CTrunkCalls::Later(const Call& call, std::chrono::milliseconds delay, Action action) {
  const std::weak_ptr<CTrunkCalls> owner = weak_from_this();
  reactor.After(delay, [owner, call, action = std::move(action)] {
    const auto self = owner.lock();
    if (self != nullptr && self->Find(call->handle) == call) {
      action(call);
    }
  });
}

bool CTrunkCalls::TakeTimeslot(const Call& call, int timeslot) {
  if (!timeslots.Occupy(timeslot, call)) {
    return false;
  }
  call->SetTimeslot(timeslot);
  return true;
}

void CTrunkCalls::OpenAudio(const Call& call, EAudioFrom point) {
  const std::lock_guard guard(call->lock);
  if (!IsVoiceTimeslot(call->timeslot)) {
    return;
  }
  if (!call->recording && call->farEnd.recordFrom <= point) {
    audio.AddRecorder(trunk, call->timeslot, call->recorder);
    call->recording = true;
  }
  if (!call->audioOpen && call->farEnd.playFrom <= point) {
    call->audioOpen = true;
    call->source = call->source != nullptr ? call->source : call->farEnd.play;
    audio.Play(trunk, call->timeslot, call->source);
  }
}

void CTrunkCalls::CloseAudio(const Call& call) {
  const std::lock_guard guard(call->lock);
  if (call->recording) {
    audio.RemoveRecorder(trunk, call->timeslot, call->recorder);
    call->recording = false;
  }
  if (call->audioOpen) {
    audio.StopPlaying(trunk, call->timeslot, call->source);
    call->audioOpen = false;
  }
}

// libpri may have freed a call without a word: its place is the new one's.
void CTrunkCalls::Keep(const Call& call) {
  std::erase_if(calls, [&](const Call& known) { return known->handle == call->handle; });
  calls.push_back(call);
}

Call CTrunkCalls::Find(q931_call* handle) const {
  const auto found = std::find_if(calls.begin(), calls.end(), [&](const Call& call) { return call->handle == handle; });
  return found == calls.end() ? nullptr : *found;
}

}  // namespace cardsim
