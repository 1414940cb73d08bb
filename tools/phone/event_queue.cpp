// SPDX-License-Identifier: GPL-2.0-only
#include "phone/event_queue.h"

#include <algorithm>

#include "zelk/ZelkApi.h"

namespace phone {

namespace {

bool EndsCall(const SPhoneEvent& event) {
  return event.code == ZELK_EVENT_DISCONNECTED || (event.code == ZELK_EVENT_CHANNEL_STATE && event.param == 0);
}

}  // namespace

bool CEventQueue::Take(SPhoneEvent& event) {
  if (events.empty()) {
    return false;
  }
  event = events.front();
  events.pop_front();
  return true;
}

std::optional<SPhoneEvent> CEventQueue::TakeEnd(int32_t channel) {
  const auto end = std::find_if(events.begin(), events.end(), [channel](const SPhoneEvent& event) {
    return event.channel == channel && EndsCall(event);
  });
  if (end == events.end()) {
    return std::nullopt;
  }
  const SPhoneEvent taken = *end;
  const auto kept =
      std::remove_if(events.begin(), end + 1, [channel](const SPhoneEvent& event) { return event.channel == channel; });
  events.erase(kept, end + 1);
  return taken;
}

}  // namespace phone
