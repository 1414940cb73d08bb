// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/simulated/options.h"
#include "platform/simulated/random.h"
#include "platform/simulated/tasks/agenda.h"
#include "platform/simulated/tasks/lock_watch.h"
#include "platform/simulated/tasks/policy.h"
#include "platform/simulated/tasks/task.h"

namespace zelk::sim {

// What is traced with each step: what the task was about to do, or had done.
enum class EStep : uint8_t { kLock, kUnlock, kSet, kReset, kWait, kSleep, kClock, kThread, kSocket, kFile };

enum class EVerdict {
  kEnded,     // every task has ended
  kDeadlock,  // tasks wait for each other, or all of them for something that nobody can do any more
  kLeftOver,  // tasks that should have ended after the first one have not
  kTooLong,   // more steps or more time than the run may take
  kFailed,    // Fail was called
};

// Runs the tasks of one world, one at a time, and its time.
// Thread: the tasks' own. Step and Block are called by a task; acts on the agenda run between tasks, on the stack of
// one of them, and must not block: there Step does nothing and Block ends the run.
class CScheduler {
 public:
  explicit CScheduler(const SWorldOptions& worldOptions);
  ~CScheduler();
  CScheduler(const CScheduler&) = delete;
  CScheduler& operator=(const CScheduler&) = delete;

  // Null outside of a run.
  static CScheduler* Current() { return running; }

  EVerdict Run(std::function<void()> main);
  // Null when there is nothing to run it on.
  STask* Start(std::string name, std::function<void()> body);

  // Others may go on here.
  void Step(EStep what, uint64_t detail = 0);
  // The same for a task that has nothing to do just now.
  void Yield();
  // False when the time came first. What is waited for has to be looked at again after true.
  bool Block(const SWait& wait);
  void Wake(const void* object);
  bool IsAwaited(const void* object) const;
  // Outside of a run: goes to what is due next on the agenda, which is not empty, and does it.
  void PassTime();
  // Ends the run with this verdict.
  void Fail(const std::string& why);

  // The running task; null where none runs, or an act.
  STask* Task() const { return IsInTask() ? current : nullptr; }
  // What runs is the library's own code.
  bool IsInLibrary() const { return IsInTask() && current->isInLibrary && current->inSystem == 0; }
  // Of the running task; 0 where none runs.
  uint32_t Number() const { return current == nullptr ? 0 : current->number; }
  bool IsInTask() const { return current != nullptr && !isActing; }
  int& LastError() { return current == nullptr ? errorOutside : current->lastError; }

  int64_t NowUs() const { return nowUs; }
  uint64_t Steps() const { return steps; }
  uint64_t Switches() const { return switches; }
  const std::string& Report() const { return report; }
  CRandom& Random() { return random; }
  CTrace& Trace() { return trace; }
  CAgenda& Agenda() { return agenda; }
  // Null where the world does not want it.
  CLockWatch* LockWatch() { return options.watchesLocks ? &lockWatch : nullptr; }
  uint64_t WorldNumber() const { return worldNumber; }

 private:
  void RunTask(STask& task);
  void EndTask(STask& task);
  void MakeReady(STask& task);
  void MakeWaiting(STask& task);
  static void PutInto(std::vector<STask*>& list, STask& task);
  static void TakeFrom(std::vector<STask*>& list, STask& task);
  void SwitchTo(STask& next);
  void Enter(STask& next);
  STask* AwaitReady();
  void Act();
  void CheckLimits();
  void CheckCycle(const SWait& wait);
  void End(EVerdict verdict, const std::string& why);
  void TakeFrames();
  void WriteReport(const std::string& why);
  void LeaveNothing();

  static CScheduler* running;

  const SWorldOptions options;
  CRandom random;
  CTrace trace;
  CAgenda agenda;
  CLockWatch lockWatch;
  CPolicy policy;
  std::unique_ptr<CCarrier> carrier;
  const uint64_t worldNumber;

  std::vector<std::unique_ptr<STask>> tasks;  // by number - 1; null once ended
  std::vector<STask*> ready;
  std::vector<STask*> waiting;
  std::vector<std::unique_ptr<CStrand>> spent;  // of tasks that have ended
  STask* current = nullptr;
  CStrand* here = nullptr;    // what the code that runs now stands on
  bool isInspecting = false;  // stacks are taken: whoever is switched to gives its own and switches back
  bool isActing = false;
  bool hasEnded = false;
  bool isMainOver = false;
  int64_t mainOverUs = 0;

  int64_t nowUs = 0;
  uint64_t steps = 0;
  uint64_t switches = 0;
  int errorOutside = 0;
  EVerdict verdict = EVerdict::kEnded;
  std::string report;
};

}  // namespace zelk::sim
