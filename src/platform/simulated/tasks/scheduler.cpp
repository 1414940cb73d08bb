// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/scheduler.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "platform/simulated/tasks/report.h"
#include "platform/simulated/tasks/side.h"

namespace zelk::sim {

namespace {

// Worlds of a process are told apart by it, so that what one of them left locked is free in the next.
uint64_t lastWorldNumber = 0;

std::unique_ptr<CCarrier> MakeCarrier(ECarrier kind) {
  return kind == ECarrier::kFibers ? MakeFiberCarrier() : MakeThreadCarrier();
}

}  // namespace

CScheduler* CScheduler::running = nullptr;

CScheduler::CScheduler(const SWorldOptions& worldOptions)
    : options(worldOptions),
      random(worldOptions.seed),
      policy(options, random),
      carrier(MakeCarrier(worldOptions.carrier)),
      worldNumber(++lastWorldNumber) {}

CScheduler::~CScheduler() {
  LeaveNothing();
}

void CScheduler::PutInto(std::vector<STask*>& list, STask& task) {
  task.place = list.size();
  list.push_back(&task);
}

void CScheduler::TakeFrom(std::vector<STask*>& list, STask& task) {
  list.back()->place = task.place;
  list[task.place] = list.back();
  list.pop_back();
}

void CScheduler::MakeReady(STask& task) {
  if (task.alarm != 0) {
    agenda.Cancel(std::exchange(task.alarm, 0));
  }
  task.wait = {};
  TakeFrom(waiting, task);
  PutInto(ready, task);
}

void CScheduler::MakeWaiting(STask& task) {
  TakeFrom(ready, task);
  PutInto(waiting, task);
  task.waitsSinceUs = nowUs;
  task.hasTimedOut = false;
  if (task.wait.dueUs != kNever) {
    task.alarm = agenda.Add(task.wait.dueUs, [this, &task] {
      task.alarm = 0;
      task.hasTimedOut = true;
      MakeReady(task);
    });
  }
}

EVerdict CScheduler::Run(std::function<void()> main) {
  CScheduler* const outer = std::exchange(running, this);
  STask* const first = Start("main", [this, body = std::move(main)] {
    body();
    isMainOver = true;
    mainOverUs = nowUs;
  });
  if (first != nullptr) {
    Enter(*first);
    carrier->Switch(carrier->Home(), *first->strand);
  }
  current = nullptr;
  running = outer;
  spent.clear();
  return verdict;
}

STask* CScheduler::Start(std::string name, std::function<void()> body) {
  const CInSystem inSystem(this);
  // An act may start a task from the strand of one that has just ended.
  std::erase_if(spent, [this](const std::unique_ptr<CStrand>& strand) { return strand.get() != here; });
  auto task = std::make_unique<STask>();
  STask* const started = task.get();
  started->number = static_cast<uint32_t>(tasks.size() + 1);
  started->name = std::move(name);
  started->body = std::move(body);
  started->strand = carrier->Make([this, started] { RunTask(*started); });
  if (started->strand == nullptr) {
    return nullptr;
  }
  policy.Place(*started);
  tasks.push_back(std::move(task));
  PutInto(ready, *started);
  return started;
}

void CScheduler::RunTask(STask& task) {
  try {
    task.body();
    task.body = nullptr;
  } catch (const std::exception& thrown) {
    task.isInLibrary = false;
    Fail("task '" + task.name + "' threw: " + thrown.what());
  }
  task.isInLibrary = false;
  EndTask(task);
}

// The last thing that runs on the task's strand, which the next start or the end of the run takes back. The strand may
// never come to the end of this: nothing is left to be destroyed there.
void CScheduler::EndTask(STask& task) {
  TakeFrom(ready, task);
  CStrand& own = *task.strand;
  spent.push_back(std::move(task.strand));
  tasks[task.number - 1] = nullptr;
  current = nullptr;
  if (ready.empty() && waiting.empty()) {
    hasEnded = true;
    carrier->SwitchForGood(own, carrier->Home());
    return;
  }
  STask* const next = AwaitReady();
  if (next == nullptr) {
    carrier->SwitchForGood(own, carrier->Home());
    return;
  }
  Enter(*next);
  carrier->SwitchForGood(own, *next->strand);
}

void CScheduler::Enter(STask& next) {
  ++switches;
  trace.Add(next.number);
  current = &next;
  here = next.strand.get();
  next.hasBegun = true;
}

void CScheduler::SwitchTo(STask& next) {
  STask& self = *current;
  if (&next == &self) {
    return;
  }
  Enter(next);
  carrier->Switch(*self.strand, *next.strand);
  while (isInspecting) {
    self.frameCount = TakeStack(self.frames.data(), STask::kMostFrames);
    carrier->Switch(*self.strand, *here);
  }
}

void CScheduler::Act() {
  isActing = true;
  while (agenda.HasDue(nowUs) && !hasEnded) {
    agenda.TakeNext()();
  }
  isActing = false;
}

void CScheduler::PassTime() {
  nowUs = std::max(nowUs, agenda.NextDueUs());
  Act();
}

// Lets time pass until a task can run. Null when the run is over.
STask* CScheduler::AwaitReady() {
  while (ready.empty()) {
    if (agenda.IsEmpty()) {
      End(EVerdict::kDeadlock, "every task waits, and nothing is left that could wake one");
      return nullptr;
    }
    PassTime();
    CheckLimits();
    if (hasEnded) {
      return nullptr;
    }
  }
  return policy.Choose(ready, nullptr);
}

void CScheduler::Step(EStep what, uint64_t detail) {
  if (!IsInTask()) {
    return;
  }
  const CInSystem inSystem(this);
  ++steps;
  nowUs += options.stepUs;
  trace.Add(detail << 8 | static_cast<uint64_t>(what));
  if (agenda.HasDue(nowUs)) {
    Act();
  }
  CheckLimits();
  if (options.stallPerMillion != 0 && random.Chance(options.stallPerMillion)) {
    Block({EWaitFor::kTime, nullptr, nowUs + random.Between(1, options.mostStallUs), 0});
    return;
  }
  SwitchTo(*policy.Choose(ready, current));
}

void CScheduler::Yield() {
  if (IsInTask()) {
    policy.Yield(*current);
    ++steps;
    nowUs += options.stepUs;
    Block({EWaitFor::kTime, nullptr, nowUs, 0});
  }
}

bool CScheduler::Block(const SWait& wait) {
  if (!IsInTask()) {
    Fail("something that must not wait did");
    return false;
  }
  const CInSystem inSystem(this);
  CheckCycle(wait);
  STask& self = *current;
  self.wait = wait;
  if (wait.what == EWaitFor::kMutex) {
    self.wait.dueUs = nowUs + options.mostMutexWaitUs;
  }
  MakeWaiting(self);
  STask* const next = AwaitReady();
  if (next != nullptr) {
    SwitchTo(*next);
  }
  if (wait.what == EWaitFor::kMutex && self.hasTimedOut) {
    self.wait = wait;
    End(EVerdict::kDeadlock, "task '" + self.name + "' waits for a mutex without an end");
  }
  return !self.hasTimedOut;
}

// From the last one on: the one that takes a freed place was looked at before.
void CScheduler::Wake(const void* object) {
  const CInSystem inSystem(this);
  for (size_t i = waiting.size(); i-- > 0;) {
    if (waiting[i]->wait.object == object) {
      MakeReady(*waiting[i]);
    }
  }
}

bool CScheduler::IsAwaited(const void* object) const {
  return std::any_of(waiting.begin(), waiting.end(),
                     [object](const STask* task) { return task->wait.object == object; });
}

// Whoever waits for a mutex waits for its holder, and so on.
void CScheduler::CheckCycle(const SWait& wait) {
  uint32_t holder = wait.what == EWaitFor::kMutex ? wait.holder : 0;
  for (size_t i = 0; holder != 0 && i <= tasks.size(); ++i) {
    if (holder == current->number) {
      current->wait = wait;
      End(EVerdict::kDeadlock, "tasks wait in a ring for each other's mutexes");
      return;
    }
    const STask* const task = tasks[holder - 1].get();
    holder = task != nullptr && task->wait.what == EWaitFor::kMutex ? task->wait.holder : 0;
  }
}

void CScheduler::CheckLimits() {
  if (steps > options.mostSteps || nowUs > options.mostUs) {
    End(EVerdict::kTooLong, "the run takes longer than it may");
  } else if (isMainOver && nowUs - mainOverUs > options.mostAfterMainUs) {
    End(EVerdict::kLeftOver, "tasks have not ended after the first one");
  }
}

void CScheduler::Fail(const std::string& why) {
  End(EVerdict::kFailed, why);
}

// Leaves for good to whoever started the run, from wherever this is, unless no task is running.
void CScheduler::End(EVerdict how, const std::string& why) {
  if (hasEnded) {
    return;
  }
  hasEnded = true;
  verdict = how;
  WriteReport(why);
  if (current != nullptr) {
    isActing = false;
    while (true) {
      carrier->Switch(*here, carrier->Home());
    }
  }
}

void CScheduler::WriteReport(const std::string& why) {
  TakeFrames();
  std::vector<const STask*> left;
  for (const std::unique_ptr<STask>& task : tasks) {
    if (task != nullptr) {
      left.push_back(task.get());
    }
  }
  report = DescribeTasks(why, left, nowUs);
}

// Each task takes its stack itself, where it stands.
void CScheduler::TakeFrames() {
  if (here == nullptr) {
    return;
  }
  isInspecting = true;
  for (const std::unique_ptr<STask>& task : tasks) {
    if (task != nullptr && task->hasBegun && task.get() != current) {
      carrier->Switch(*here, *task->strand);
    }
  }
  isInspecting = false;
  if (current != nullptr) {
    current->frameCount = TakeStack(current->frames.data(), STask::kMostFrames);
  }
}

// What a run that was cut short has left stays where it is.
void CScheduler::LeaveNothing() {
  for (std::unique_ptr<STask>& task : tasks) {
    if (task != nullptr) {
      carrier->Abandon(std::move(task->strand));
      (void)task.release();
    }
  }
}

}  // namespace zelk::sim
