// SPDX-License-Identifier: GPL-2.0-only
#include "call/application_events.h"

#include "runtime/status_page.h"

namespace zelk {

void CApplicationEvents::Post(uint32_t channel, EApplicationEvent event, int32_t param) const {
  if (ZelkEventCallback callback = eventCallback) {
    const CCallbackWatch watch(kStatusEvent, channel);
    callback(static_cast<int32_t>(channel), event, param);
  }
}

bool CApplicationEvents::Record(uint32_t channel, const uint8_t* data, uint32_t length) const {
  ZelkRecordCallback callback = recordCallback;
  if (callback != nullptr) {
    const CCallbackWatch watch(kStatusRecord, channel);
    callback(channel, data, length);
  }
  return callback != nullptr;
}

// Constant-initialised: ready before any constructor runs.
constinit CApplicationEvents applicationEvents;

}  // namespace zelk
