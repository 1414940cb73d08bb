// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "platform/event.h"
#include "platform/simulated/random.h"
#include "platform/simulated/world.h"
#include "world/application.h"
#include "world/call_watch.h"
#include "world/callers.h"
#include "world/checks.h"
#include "world/far_ends.h"
#include "world/fault_driver.h"
#include "world/plan.h"

namespace world {

// Job: ends the library's life in the middle of calls, and begins the next one: ZELK_Shutdown and ZELK_Init, while a
// callback is under way that is slow, that calls every function for its channel, or that waits for a lock of the
// application under which the library is shut down.
// Thread: Run a task of the application, which no other thread of it calls the library beside; the rest from callbacks.
class CLives {
 public:
  CLives(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CApplication& application,
         cardsim::CSimulator& simulator, CFarEnds& ends, CFaultDriver& faultDriver, CCallWatch& callWatch,
         CCallers& ownCallers);
  CLives(const CLives&) = delete;
  CLives& operator=(const CLives&) = delete;

  void Run();
  // First in each callback. False when the library has been shut down meanwhile, so that the channel is no more.
  bool OnEvent(const SEvent& event);
  void OnBlock(int32_t channel);

 private:
  void End(const SLifeEnd& end);
  void Begin(const SLifeEnd& end);
  void MakeCalls();
  void Provoke(EMoment moment);
  void AwaitMoment(const SLifeEnd& end);
  bool HoldUp(int32_t channel);
  void CallEverything(int32_t channel);
  void AwaitCallbacks(int64_t mostMs);

  zelk::sim::CWorld& world;
  const SWorldPlan& plan;
  CChecks& checks;
  CApplication& app;
  cardsim::CSimulator& sim;
  CFarEnds& farEnds;
  CFaultDriver& faults;
  CCallWatch& watch;
  CCallers& callers;
  zelk::sim::CRandom random;
  const SLifeEnd* armed = nullptr;  // for the next callback of its kind
  uint32_t shutdowns = 0;
  bool isLocked = false;
  zelk::CEvent isThere;   // the callback is under way
  zelk::CEvent goesDown;  // ZELK_Shutdown is called next
  zelk::CEvent isFree;    // the application's lock
};

}  // namespace world
