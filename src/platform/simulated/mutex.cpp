// SPDX-License-Identifier: GPL-2.0-only
#include "platform/mutex.h"

#include "platform/simulated/tasks/scheduler.h"

namespace zelk {

using sim::CScheduler;
using sim::EStep;

namespace {

sim::CLockWatch* Watch() {
  CScheduler* const scheduler = CScheduler::Current();
  return scheduler == nullptr ? nullptr : scheduler->LockWatch();
}

}  // namespace

bool CSimulatedMutex::IsHeld() const {
  const CScheduler* const scheduler = CScheduler::Current();
  return holder != 0 && scheduler != nullptr && world == scheduler->WorldNumber();
}

CSimulatedMutex::~CSimulatedMutex() {
  if (IsHeld()) {
    CScheduler::Current()->Fail("a mutex is destroyed while a task holds it");
  }
  if (sim::CLockWatch* const watch = Watch()) {
    watch->Gone(this);
  }
}

void CSimulatedMutex::Take() {
  const CScheduler& scheduler = *CScheduler::Current();
  const bool isFirst = !IsHeld();
  depth = isFirst ? 1 : depth + 1;
  world = scheduler.WorldNumber();
  holder = scheduler.Number();
  if (sim::CLockWatch* const watch = isFirst ? Watch() : nullptr) {
    watch->Taken(holder, this);
  }
}

bool CSimulatedMutex::IsOthers() const {
  return IsHeld() && !(isRecursive && holder == CScheduler::Current()->Number());
}

void CSimulatedMutex::CheckOrder() const {
  CScheduler* const scheduler = CScheduler::Current();
  sim::CLockWatch* const watch = scheduler->LockWatch();
  const bool isOwn = IsHeld() && holder == scheduler->Number();
  if (watch != nullptr && !isOwn && !watch->BeforeTaking(scheduler->Number(), this)) {
    scheduler->Fail("locks are taken in two orders");
  }
}

void CSimulatedMutex::lock() {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return;
  }
  scheduler->Step(EStep::kLock);
  CheckOrder();
  while (IsOthers()) {
    isAwaited = true;
    scheduler->Block({sim::EWaitFor::kMutex, this, sim::kNever, holder});
  }
  Take();
}

bool CSimulatedMutex::try_lock() {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return true;
  }
  scheduler->Step(EStep::kLock);
  if (IsOthers()) {
    return false;
  }
  Take();
  return true;
}

void CSimulatedMutex::unlock() {
  CScheduler* const scheduler = CScheduler::Current();
  if (scheduler == nullptr) {
    return;
  }
  if (!IsHeld() || holder != scheduler->Number()) {
    scheduler->Fail("a mutex is released by a task that does not hold it");
    return;
  }
  if (--depth > 0) {
    return;
  }
  if (sim::CLockWatch* const watch = scheduler->LockWatch()) {
    watch->Released(holder, this);
  }
  holder = 0;
  if (isAwaited) {
    isAwaited = false;
    scheduler->Wake(this);
  }
  // The mutex may be gone when this returns.
  scheduler->Step(EStep::kUnlock);
}

}  // namespace zelk
