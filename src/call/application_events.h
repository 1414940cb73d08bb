// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>

#include "zelk/ZelkApi.h"

namespace zelk {

// The events of the public interface, under the names that the call logic uses.
enum EApplicationEvent : uint32_t {
  EVENT_DTMF = ZELK_EVENT_DTMF,
  EVENT_PLAY_DONE = ZELK_EVENT_PLAY_DONE,
  EVENT_INCOMING_CALL = ZELK_EVENT_INCOMING_CALL,
  EVENT_CONNECTED = ZELK_EVENT_CONNECTED,
  EVENT_DISCONNECTED = ZELK_EVENT_DISCONNECTED,
  EVENT_ALERTING = ZELK_EVENT_ALERTING,
  EVENT_PROCEEDING = ZELK_EVENT_PROCEEDING,
  EVENT_PROGRESS = ZELK_EVENT_PROGRESS,
  EVENT_CHANNEL_STATE = ZELK_EVENT_CHANNEL_STATE,
};

// The three callbacks of the application; a missing one is skipped. One instance a process (ApplicationEvents()), which
// start-up and shut-down leave alone.
// Thread: any. The callbacks run on the caller's thread and may block it. A caller holds no lock of a channel, and
// touches the channel no more once the callback has run: the application may have shut the library down meanwhile.
class CApplicationEvents {
 public:
  void SetEventCallback(ZelkEventCallback callback) { eventCallback = callback; }
  void SetPlayCallback(ZelkPlayCallback callback) { playCallback = callback; }
  void SetRecordCallback(ZelkRecordCallback callback) { recordCallback = callback; }

  void Post(uint32_t channel, EApplicationEvent event, int32_t param) const;
  // Null when the application has none.
  ZelkPlayCallback PlayCallback() const { return playCallback; }
  // Whether the application has one, and so has had the block.
  bool Record(uint32_t channel, const uint8_t* data, uint32_t length) const;

 private:
  std::atomic<ZelkEventCallback> eventCallback{nullptr};
  std::atomic<ZelkPlayCallback> playCallback{nullptr};
  std::atomic<ZelkRecordCallback> recordCallback{nullptr};
};

extern CApplicationEvents applicationEvents;

inline CApplicationEvents& ApplicationEvents() {
  return applicationEvents;
}

}  // namespace zelk
