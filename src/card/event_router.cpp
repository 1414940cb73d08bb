// SPDX-License-Identifier: GPL-2.0-only
#include "card/event_router.h"

namespace zelk {

namespace {

SEventRoute StatusRoute(ETrunkStatus status) {
  return {SEventRoute::EKind::kStatus, status, CALLEV_UNKNOWN};
}
SEventRoute CallRoute(ECallEvent call) {
  return {SEventRoute::EKind::kCall, kStatusNone, call};
}

void RouteStatus(const SEventSource& source, ETrunkStatus status, const CStopFlag& caller) {
  CTrunk& trunk = source.trunk;
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  if (status != kConfigError) {
    trunk.isDchannelUp = status == kDchannelUp;
    trunk.isUpReported = trunk.isDchannelUp && source.handlers != nullptr;
  }
  if (source.handlers == nullptr) {
    return;
  }
  if (status == kConfigError) {
    source.handlers->OnConfigError(source.index);
  } else if (status == kDchannelUp) {
    source.handlers->OnDchannelUp(source.index, caller);
  } else {
    source.handlers->OnDchannelDown(source.index, caller);
  }
}

void RouteCall(const SEventSource& source, ECallEvent code, const SPriEvent& event, const CStopFlag& caller) {
  if (source.handlers != nullptr) {
    source.handlers->OnCallEvent(source.card, static_cast<uint16_t>(source.index), static_cast<uint16_t>(event.channel),
                                 code, event);
  }
  CTrunk& trunk = source.trunk;
  const CScopedLock<CRecursiveMutex> held(trunk.lock);
  if (code == CALLEV_ANSWER && !caller.IsSet() && trunk.controller != nullptr) {
    trunk.controller->ConnectAck(event.call, event.channel);
  }
}

}  // namespace

SEventRoute RouteOf(int priEventCode) {
  switch (priEventCode) {
    case kPriDchannelUp:
      return StatusRoute(kDchannelUp);
    case kPriDchannelDown:
      return StatusRoute(kDchannelDown);
    case kPriConfigError:
      return StatusRoute(kConfigError);
    case kPriRestart:
      return CallRoute(CALLEV_RESTART);
    case kPriRing:
      return CallRoute(CALLEV_RING);
    case kPriHangup:
      return CallRoute(CALLEV_HANGUP);
    case kPriHangupRequest:
      return CallRoute(CALLEV_HANGUP_REQ);
    case kPriConnectAck:
      return CallRoute(CALLEV_CONNECT_ACK);
    case kPriHangupAck:
      return CallRoute(CALLEV_HANGUP_ACK);
    case kPriInfoReceived:
      return CallRoute(CALLEV_INFO);
    case kPriRinging:
      return CallRoute(CALLEV_RINGING);
    case kPriProceeding:
      return CallRoute(CALLEV_PROCEEDING);
    case kPriAnswer:
      return CallRoute(CALLEV_ANSWER);
    case kPriProgress:
      return CallRoute(CALLEV_PROGRESS);
    default:
      return {};
  }
}

void RouteEvent(const SEventSource& source, const SPriEvent& event, const CStopFlag& caller) {
  const SEventRoute route = RouteOf(event.code);
  if (route.kind == SEventRoute::EKind::kStatus) {
    RouteStatus(source, route.status, caller);
  } else if (route.kind == SEventRoute::EKind::kCall) {
    RouteCall(source, route.call, event, caller);
  }
}

}  // namespace zelk
