#include "card/event_router.h"

namespace zelk {

namespace {

SEventRoute StatusRoute(ETrunkStatus status) {
  return {SEventRoute::EKind::kStatus, status, CALLEV_UNKNOWN};
}
SEventRoute CallRoute(ECallEvent call) {
  return {SEventRoute::EKind::kCall, kStatusNone, call};
}

void RouteStatus(CCardCore& core, uint32_t trunk, ETrunkStatus status, const CStopFlag& caller) {
  CTrunk& entry = core.trunks[trunk];
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  ICardHandlers* handlers = core.handlers;
  if (status != kConfigError) {
    entry.isDchannelUp = status == kDchannelUp;
    entry.isUpReported = entry.isDchannelUp && handlers != nullptr;
  }
  if (handlers == nullptr) {
    return;
  }
  if (status == kConfigError) {
    handlers->OnConfigError(trunk);
  } else if (status == kDchannelUp) {
    handlers->OnDchannelUp(trunk, caller);
  } else {
    handlers->OnDchannelDown(trunk, caller);
  }
}

void RouteCall(CCardCore& core, uint32_t trunk, ECallEvent code, const SPriEvent& event, const CStopFlag& caller) {
  if (ICardHandlers* handlers = core.handlers) {
    handlers->OnCallEvent(core.owner, static_cast<uint16_t>(trunk), static_cast<uint16_t>(event.channel), code, event);
  }
  CTrunk& entry = core.trunks[trunk];
  const CScopedLock<CRecursiveMutex> held(entry.lock);
  if (code == CALLEV_ANSWER && !caller.IsSet() && entry.controller != nullptr) {
    entry.controller->ConnectAck(event.call, event.channel);
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

void RouteEvent(CCardCore& core, uint32_t trunk, const SPriEvent& event, const CStopFlag& caller) {
  const SEventRoute route = RouteOf(event.code);
  if (route.kind == SEventRoute::EKind::kStatus) {
    RouteStatus(core, trunk, route.status, caller);
  } else if (route.kind == SEventRoute::EKind::kCall) {
    RouteCall(core, trunk, route.call, event, caller);
  }
}

}  // namespace zelk
