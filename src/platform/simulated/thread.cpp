// SPDX-License-Identifier: GPL-2.0-only
#include "platform/thread.h"

#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "platform/event.h"
#include "platform/simulated/world.h"

namespace zelk {

using sim::CWorld;

namespace {

constexpr size_t kMaxNameChars = 15;
constexpr uint32_t kNoTask = 0;
constexpr uint64_t kOutside = UINT64_MAX;

uint32_t OwnTask() {
  const CWorld* const world = CWorld::Current();
  return world == nullptr ? kNoTask : const_cast<CWorld*>(world)->Scheduler().Number();
}

}  // namespace

// Shared by the owner and the task, so that each may outlive the other.
struct CThread::SState {
  std::function<void()> body;
  uint32_t task = kNoTask;
  CEvent ended;
};

CThread::CThread() = default;

CThread::~CThread() {
  if (state != nullptr && state->task != OwnTask()) {
    state->ended.Wait();
  }
}

bool CThread::Start(const char* name, std::function<void()> body, EThreadPriority) {
  CWorld* const world = CWorld::Current();
  if (state != nullptr || !body || world == nullptr) {
    return false;
  }
  world->Scheduler().Step(sim::EStep::kThread);
  if (world->Scarcity().IsThreadStartToFail()) {
    return false;
  }
  try {
    auto started = std::make_shared<SState>();
    started->body = std::move(body);
    sim::STask* const task = world->Scheduler().Start(std::string(name).substr(0, kMaxNameChars), [started] {
      started->body();
      started->body = nullptr;
      started->ended.Set();
    });
    if (task == nullptr) {
      return false;
    }
    task->isInLibrary = std::string_view(name).starts_with("zelk-");  // as the library names its threads
    started->task = task->number;
    state = std::move(started);
  } catch (const std::bad_alloc&) {
    return false;
  }
  world->Scheduler().Step(sim::EStep::kThread, state->task);
  return true;
}

bool CThread::IsStarted() const {
  return state != nullptr;
}

bool CThread::JoinFor(uint32_t timeoutMs) {
  if (state == nullptr) {
    return true;
  }
  const std::shared_ptr<SState> joined = std::move(state);
  state = nullptr;
  return joined->task != OwnTask() && joined->ended.WaitFor(timeoutMs);
}

uint64_t OwnThreadNumber() {
  const uint32_t task = OwnTask();
  return task == kNoTask ? kOutside : task;
}

bool OtherThreadsAreGone() {
  return false;
}

}  // namespace zelk
