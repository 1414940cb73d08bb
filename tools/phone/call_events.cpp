// SPDX-License-Identifier: GPL-2.0-only
#include "phone/call_events.h"

#include "zelk/ZelkApi.h"

namespace phone {

namespace {

constexpr int32_t kNoCause = -1;

Json CauseOrNull(int32_t cause) {
  return cause == kNoCause ? Json(nullptr) : Json(cause);
}

SEventLine Plain(const char* type, const std::string& text, const SPhoneEvent& event) {
  return {type, text, {{"channel", event.channel}}};
}

SEventLine With(SEventLine line, const Json& fields) {
  line.fields.update(fields);
  return line;
}

SEventLine IncomingLine(const SPhoneEvent& event) {
  const SCaller& caller = event.caller;
  const std::string text = "incoming call on channel " + std::to_string(event.channel) + " from " + caller.calling +
                           " to " + caller.called + " (" + caller.callType + ")";
  return With(Plain("incoming", text, event), {{"calling", TextOfLine(caller.calling)},
                                               {"called", TextOfLine(caller.called)},
                                               {"redirecting", TextOfLine(caller.redirecting)},
                                               {"callType", TextOfLine(caller.callType)}});
}

}  // namespace

SEventLine LineOf(const SPhoneEvent& event) {
  switch (event.code) {
    case ZELK_EVENT_INCOMING_CALL:
      return IncomingLine(event);
    case ZELK_EVENT_PROCEEDING:
      return Plain("proceeding", "proceeding", event);
    case ZELK_EVENT_PROGRESS:
      return With(Plain("progress", "progress", event), {{"cause", CauseOrNull(event.param)}});
    case ZELK_EVENT_ALERTING:
      return Plain("alerting", "alerting: the far end rings", event);
    case ZELK_EVENT_CONNECTED:
      return Plain("connected", "connected", event);
    case ZELK_EVENT_PLAY_DONE:
      return Plain("played", "played to the end", event);
    case ZELK_EVENT_DTMF: {
      const std::string digit(1, static_cast<char>(event.param));
      return With(Plain("digit", "digit " + digit, event), {{"digit", digit}});
    }
    case ZELK_EVENT_DISCONNECTED:
      return With(Plain("disconnected", "disconnected: " + CauseText(event.param), event),
                  {{"cause", CauseOrNull(event.param)}, {"causeName", ZELK_DisconnectReasonToString(event.param)}});
    default:
      return With(Plain("channel", "", event), {{"usable", event.param != 0}});
  }
}

std::string CauseText(int32_t cause) {
  return std::to_string(cause) + " " + ZELK_DisconnectReasonToString(cause);
}

}  // namespace phone
