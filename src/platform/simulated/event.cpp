// SPDX-License-Identifier: GPL-2.0-only
#include "platform/event.h"

#include "platform/clock.h"
#include "platform/simulated/tasks/scheduler.h"
#include "platform/simulated/tasks/unseen.h"

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
  sim::Publish(&native);
  const bool wasSet = native.IsSet();
  native.SetTo(true);
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
  native.SetTo(false);
}

// Outside of a world nobody could set it any more.
void CEvent::Wait() {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return;
  }
  scheduler->Step(EStep::kWait);
  while (!native.IsSet()) {
    scheduler->Block({sim::EWaitFor::kEvent, &native, sim::kNever, 0});
  }
  sim::Receive(&native);
}

bool CEvent::WaitFor(uint32_t timeoutMs) {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return native.IsSet();
  }
  scheduler->Step(EStep::kWait, timeoutMs);
  const int64_t dueUs = scheduler->NowUs() + int64_t{timeoutMs} * sim::kUsPerMs;
  while (!native.IsSet() && timeoutMs != 0 && scheduler->Block({sim::EWaitFor::kEvent, &native, dueUs, 0})) {
  }
  if (native.IsSet()) {
    sim::Receive(&native);
    return true;
  }
  return false;
}

}  // namespace zelk
