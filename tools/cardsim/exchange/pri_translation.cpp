// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/pri_translation.h"

namespace cardsim {
namespace {

int TimeslotOf(int channel) {
  return channel == -1 ? -1 : channel & 0xFF;
}

SPriEvent FromRing(const pri_event_ring& ring) {
  SPriEvent out;
  out.call = ring.call;
  out.timeslot = TimeslotOf(ring.channel);
  out.calling = ring.callingnum;
  out.called = ring.callednum;
  return out;
}

SPriEvent FromHangup(const pri_event_hangup& hangup) {
  SPriEvent out;
  out.call = hangup.call;
  out.timeslot = TimeslotOf(hangup.channel);
  out.cause = hangup.cause;
  return out;
}

template <typename T>
SPriEvent FromCall(const T& source) {
  SPriEvent out;
  out.call = source.call;
  out.timeslot = TimeslotOf(source.channel);
  return out;
}

SPriEvent Translate(const pri_event& source) {
  switch (source.e) {
    case PRI_EVENT_RING:
    case PRI_EVENT_INFO_RECEIVED:
      return FromRing(source.ring);
    case PRI_EVENT_HANGUP:
    case PRI_EVENT_HANGUP_REQ:
    case PRI_EVENT_HANGUP_ACK:
      return FromHangup(source.hangup);
    case PRI_EVENT_RINGING:
      return FromCall(source.ringing);
    case PRI_EVENT_ANSWER:
      return FromCall(source.answer);
    case PRI_EVENT_PROCEEDING:
    case PRI_EVENT_PROGRESS:
      return FromCall(source.proceeding);
    case PRI_EVENT_SETUP_ACK:
      return FromCall(source.setup_ack);
    case PRI_EVENT_CONNECT_ACK:
      return FromCall(source.connect_ack);
    case PRI_EVENT_KEYPAD_DIGIT: {
      SPriEvent out = FromCall(source.digit);
      out.digits = source.digit.digits;
      return out;
    }
    case PRI_EVENT_RESTART: {
      SPriEvent out;
      out.timeslot = TimeslotOf(source.restart.channel);
      return out;
    }
    case PRI_EVENT_RESTART_ACK: {
      SPriEvent out;
      out.timeslot = TimeslotOf(source.restartack.channel);
      return out;
    }
    default:
      return {};
  }
}

}  // namespace

std::optional<SPriEvent> FromLibpri(const pri_event* source) {
  if (source == nullptr) {
    return std::nullopt;
  }
  SPriEvent out = Translate(*source);
  out.code = source->e;
  return out;
}

}  // namespace cardsim
