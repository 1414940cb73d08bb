// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/side.h"

#include "platform/simulated/tasks/scheduler.h"

namespace zelk::sim {

CInSystem::CInSystem(const CScheduler* scheduler) : task(scheduler == nullptr ? nullptr : scheduler->Task()) {
  if (task != nullptr) {
    ++task->inSystem;
  }
}

CInSystem::~CInSystem() {
  if (task != nullptr) {
    --task->inSystem;
  }
}

CSide::CSide(bool isInLibrary)
    : task(CScheduler::Current() == nullptr ? nullptr : CScheduler::Current()->Task()),
      before(task != nullptr && task->isInLibrary) {
  if (task != nullptr) {
    task->isInLibrary = isInLibrary;
  }
}

CSide::~CSide() {
  if (task != nullptr) {
    task->isInLibrary = before;
  }
}

}  // namespace zelk::sim
