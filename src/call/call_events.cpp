// SPDX-License-Identifier: GPL-2.0-only
#include "call/call_events.h"

#include "call/application_events.h"
#include "call/call_type.h"
#include "call/disconnect_cause.h"
#include "runtime/log.h"

namespace zelk {

struct CCallEvents::SCall {
  CTrunk& trunk;
  CDevice& device;
  uint16_t bchannel;
  const SPriEvent& event;
};

namespace {

// False when libpri does not know the call.
bool HangUp(CTrunk& trunk, PriCall call, int cause) {
  CScopedLock held(trunk.lock);
  return trunk.controller && trunk.controller->Hangup(call, cause) >= 0;
}

// The whole end of a call, libpri's part in the middle.
void EndCall(CTrunk& trunk, CDevice& device, PriCall call, int32_t cause) {
  device.ClearCallInfo(cause);
  HangUp(trunk, call, kCauseNormalClearing);
  device.Call().End();
}

bool ReadParties(CTrunk& trunk, PriCall call, SPriParties& parties) {
  CScopedLock held(trunk.lock);
  return trunk.controller && trunk.controller->Parties(call, parties);
}

void NoteParties(CTrunk& trunk, CDevice& device, PriCall call) {
  SPriParties parties;
  if (ReadParties(trunk, call, parties)) {
    device.NoteParties(parties);
  }
}

bool IsHangup(ECallEvent code) {
  return code == CALLEV_HANGUP || code == CALLEV_HANGUP_REQ || code == CALLEV_HANGUP_ACK;
}

// A call that has no channel is nobody's: the application hears nothing of it, but libpri keeps it until its end is
// confirmed.
void ReleaseStray(CTrunk& trunk, ECallEvent code, const SPriEvent& event) {
  if (code == CALLEV_HANGUP || code == CALLEV_HANGUP_REQ) {
    HangUp(trunk, event.call, kCauseNormalClearing);
  }
}

}  // namespace

CCallEvents::CCallEvents(const CCardChannels& cardChannels, CLateReleases& releases)
    : channels(cardChannels), lateReleases(releases) {}

void CCallEvents::Handle(CCard& card, uint16_t trunkIndex, uint16_t bchannel, ECallEvent code,
                         const SPriEvent& event) const {
  if (trunkIndex >= kMaxTrunks) {
    return;
  }
  if (code == CALLEV_UNKNOWN) {
    LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u: Trunk %u - Unknown pri event %d", CardOfTrunk(trunkIndex),
              unsigned{trunkIndex}, event.code);
    return;
  }
  if (code == CALLEV_RING && bchannel == kNoBchannel && !ChooseChannel(card, trunkIndex, event, bchannel)) {
    return;
  }
  const bool named = IsBchannel(bchannel);
  CDevice* device = named ? channels.At(channels.SlotOf(trunkIndex, bchannel)) : nullptr;
  if (device == nullptr) {
    ReleaseStray(card.Trunk(trunkIndex), code, event);
    return;
  }
  const SCall call{card.Trunk(trunkIndex), *device, bchannel, event};
  if (!HandleLostCall(call, code)) {
    Dispatch(call, code);
  }
}

uint32_t CCallEvents::CardOfTrunk(uint16_t trunkIndex) const {
  const CDevice* first = channels.At(channels.SlotsOfTrunk(trunkIndex).first);
  return first != nullptr ? static_cast<uint32_t>(first->CardIndex()) : channels.CardIndex();
}

// A call that names no channel gets the trunk's first free one.
bool CCallEvents::ChooseChannel(CCard& card, uint16_t trunkIndex, const SPriEvent& event, uint16_t& bchannel) const {
  CTrunk& trunk = card.Trunk(trunkIndex);
  const CCardChannels::SSlots slots = channels.SlotsOfTrunk(trunkIndex);
  size_t slot = slots.first;
  for (; slot < slots.end && slot < kMaxChannels; ++slot) {
    const CDevice* device = channels.At(slot);
    if (device != nullptr && device->Call().View().callHandle == nullptr && device->IsOpen() &&
        device->AllowsIncoming()) {
      break;
    }
  }
  if (slot == slots.end) {
    HangUp(trunk, event.call, kCauseChannelUnavailable);
    LogFormat(ELogClass::kStatus, kGeneralLine, "Card %u: Trunk %u - New Call aborted due to BCHANNEL unavailable",
              CardOfTrunk(trunkIndex), unsigned{trunkIndex});
    return false;
  }
  bchannel = CCardChannels::BchannelOfWholeTable(slot);
  CScopedLock held(trunk.lock);
  if (trunk.controller) {
    trunk.controller->NeedMoreInfo(event.call, bchannel);
  }
  return true;
}

// True when the event is about a call that was lost with its trunk, and nothing is left to do.
bool CCallEvents::HandleLostCall(const SCall& call, ECallEvent code) {
  if (!call.device.Call().IsLost(call.event.call)) {
    return false;
  }
  if (IsHangup(code)) {
    HangUp(call.trunk, call.event.call, kCauseNormalClearing);
    call.device.Call().ForgetLost(call.event.call);
  }
  return true;
}

void CCallEvents::Dispatch(const SCall& call, ECallEvent code) const {
  const CDevice& device = call.device;
  switch (code) {
    case CALLEV_RING:
      return OnRing(call);
    case CALLEV_HANGUP:
    case CALLEV_HANGUP_REQ:
      return OnHangup(call, code);
    case CALLEV_HANGUP_ACK:
      return OnHangupAck(call);
    case CALLEV_RESTART:
      return OnRestart(call);
    case CALLEV_CONNECT_ACK:
      return OnConnectAck(call);
    case CALLEV_ANSWER:
      return OnAnswer(call);
    case CALLEV_RINGING:
      return OnRinging(call);
    case CALLEV_PROCEEDING:
      LogFormat(ELogClass::kDetail, device.LogChannel(), "Call Proceeding");
      return ApplicationEvents().Post(device.ChannelNumber(), EVENT_PROCEEDING, call.event.cause);
    case CALLEV_PROGRESS:
      LogFormat(ELogClass::kDetail, device.LogChannel(), "Call Progress");
      return ApplicationEvents().Post(device.ChannelNumber(), EVENT_PROGRESS, call.event.cause);
    default:
      return;
  }
}

void CCallEvents::OnRing(const SCall& call) {
  CDevice& device = call.device;
  const SPriEvent& ring = call.event;
  if (!device.AllowsIncoming()) {
    HangUp(call.trunk, ring.call, kCauseChannelUnavailable);
    return;
  }
  device.Call().Offer(ring.call);
  SPriParties parties;
  const bool isRedirected = ReadParties(call.trunk, ring.call, parties) && parties.redirecting.valid;
  device.NoteOffered(ring, isRedirected ? RedirectCallType(ring.redirectingReason) : kCallTypeVoice);
  {
    CScopedLock held(call.trunk.lock);
    if (call.trunk.controller) {
      call.trunk.controller->Proceeding(ring.call, call.bchannel);
      call.trunk.controller->Alerting(ring.call, call.bchannel);
    }
  }
  ApplicationEvents().Post(device.ChannelNumber(), EVENT_INCOMING_CALL, 0);
}

void CCallEvents::OnHangup(const SCall& call, ECallEvent code) {
  CDevice& device = call.device;
  const PriCall current = device.Call().View().callHandle;
  if (current != nullptr && call.event.call != nullptr && call.event.call != current) {
    // A call that this channel has given up ends while it has a newer one.
    HangUp(call.trunk, call.event.call, kCauseNormalClearing);
    return;
  }
  EndCall(call.trunk, device, code == CALLEV_HANGUP ? call.event.call : current, call.event.cause);
  ApplicationEvents().Post(device.ChannelNumber(), EVENT_DISCONNECTED, call.event.cause);
}

// No reset and no event: the channel is freed by the release that follows.
void CCallEvents::OnRestart(const SCall& call) {
  const PriCall current = call.device.Call().View().callHandle;
  if (HangUp(call.trunk, current, kCauseNormalClearing)) {
    call.device.Call().Clear(current);
  }
}

// libpri has no call any more and will say nothing else of it.
void CCallEvents::OnHangupAck(const SCall& call) const {
  if (call.event.call != nullptr && call.event.call == call.device.Call().View().callHandle) {
    lateReleases.Await(call.device.ChannelNumber(), call.event.call, call.event.cause);
  }
}

void CCallEvents::OnConnectAck(const SCall& call) {
  CDevice& device = call.device;
  NoteParties(call.trunk, device, call.event.call);
  device.Call().Connect(device.Trunk().echoEnabled);
  ApplicationEvents().Post(device.ChannelNumber(), EVENT_CONNECTED, 0);
}

void CCallEvents::OnAnswer(const SCall& call) {
  CDevice& device = call.device;
  if (device.Call().View().direction >= 1) {
    NoteParties(call.trunk, device, call.event.call);
  }
  device.Call().Connect();
  ApplicationEvents().Post(device.ChannelNumber(), EVENT_CONNECTED, 0);
}

void CCallEvents::OnRinging(const SCall& call) {
  CDevice& device = call.device;
  LogFormat(ELogClass::kDetail, device.LogChannel(), "Call Status Alerting");
  if (call.trunk.hangupOnAlerting && device.Call().View().connected) {
    // The hang-up member of a ringing event: what libpri has left there is hung up, and only if it is a call of its
    // own.
    EndCall(call.trunk, device, call.event.hangupCall, kCauseNormalClearing);
    ApplicationEvents().Post(device.ChannelNumber(), EVENT_DISCONNECTED, kCauseNormalClearing);
    return;
  }
  ApplicationEvents().Post(device.ChannelNumber(), EVENT_ALERTING, 0);
}

}  // namespace zelk
