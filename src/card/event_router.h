// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "card/card_handlers.h"
#include "card/trunk.h"

namespace zelk {

// What libpri says of a trunk, by the numbers of the card's status reports.
enum ETrunkStatus : uint32_t {
  kStatusNone = 0,
  kDchannelUp = 257,
  kDchannelDown = 258,
  kConfigError = 263,
};

// Where an event of libpri goes: a trunk status, a call event, or nowhere.
struct SEventRoute {
  enum class EKind { kIgnored, kStatus, kCall } kind = EKind::kIgnored;
  ETrunkStatus status = kStatusNone;
  ECallEvent call = CALLEV_UNKNOWN;
};

SEventRoute RouteOf(int priEventCode);

// A trunk that had an event, and whom to tell of it. Without handlers (null) the event's effects on the trunk remain.
struct SEventSource {
  CCard& card;
  ICardHandlers* handlers;
  CTrunk& trunk;
  uint32_t index;  // of the trunk in its card
};

// Hands an event to the card's handlers; an answer is acknowledged to the network once the call logic has seen it,
// unless the caller has been given up meanwhile.
// Thread: control, the trunk's lock held.
void RouteEvent(const SEventSource& source, const SPriEvent& event, const CStopFlag& caller);

}  // namespace zelk
