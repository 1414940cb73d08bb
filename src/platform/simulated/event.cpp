// SPDX-License-Identifier: GPL-2.0-only
#include "platform/event.h"

#include "platform/clock.h"
#include "platform/simulated/tasks/scheduler.h"

namespace zelk {

using sim::CScheduler;
using sim::EStep;

SNativeEvent::~SNativeEvent() {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler != nullptr && scheduler->IsAwaited(this)) {
    scheduler->Fail("an event is destroyed while a task waits for it");
  }
}

void CEvent::Set() {
  CScheduler* const scheduler = CScheduler::Current();
  const bool wasSet = native.set;
  native.set = true;
  if (scheduler != nullptr) {
    if (!wasSet) {
      scheduler->Wake(&native);
    }
    // The event may be gone when this returns.
    scheduler->Step(EStep::kSet);
  }
}

void CEvent::Reset() {
  if (CScheduler* const scheduler = CScheduler::Current()) {
    scheduler->Step(EStep::kReset);
  }
  native.set = false;
}

// Outside of a world nobody could set it any more.
void CEvent::Wait() {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return;
  }
  scheduler->Step(EStep::kWait);
  while (!native.set) {
    scheduler->Block({sim::EWaitFor::kEvent, &native, sim::kNever, 0});
  }
}

bool CEvent::WaitFor(uint32_t timeoutMs) {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return native.set;
  }
  scheduler->Step(EStep::kWait, timeoutMs);
  const int64_t dueUs = scheduler->NowUs() + int64_t{timeoutMs} * sim::kUsPerMs;
  while (!native.set && timeoutMs != 0 && scheduler->Block({sim::EWaitFor::kEvent, &native, dueUs, 0})) {
  }
  return native.set;
}

}  // namespace zelk
