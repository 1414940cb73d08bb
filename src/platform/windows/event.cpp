// SPDX-License-Identifier: GPL-2.0-only
#include "platform/event.h"

#include <windows.h>

#include <new>

namespace zelk {

SNativeEvent::SNativeEvent() : handle(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
  if (handle == nullptr) {
    throw std::bad_alloc();
  }
}

SNativeEvent::~SNativeEvent() {
  CloseHandle(handle);
}

void CEvent::Set() {
  if (!native.set.exchange(true)) {
    SetEvent(native.handle);
  }
}

// In this order a Set that comes between the two counts as one before the reset; the other way it would be lost.
void CEvent::Reset() {
  ResetEvent(native.handle);
  native.set = false;
}

void CEvent::Wait() {
  WaitForSingleObject(native.handle, INFINITE);
}

bool CEvent::WaitFor(uint32_t timeoutMs) {
  return WaitForSingleObject(native.handle, timeoutMs) == WAIT_OBJECT_0;
}

}  // namespace zelk
