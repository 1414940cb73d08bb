// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "platform/event.h"
#include "platform/simulated/random.h"
#include "platform/simulated/world.h"
#include "platform/thread.h"
#include "world/checks.h"
#include "world/plan.h"

namespace world {

// Job: no line of the log is lost, torn or late. Writes lines of its own, two at a time and so that the second one
// comes when the library's writer is about to have written the first, and looks for them in the file. Thread: one of
// the application, from Begin to End; End returns once it has ended.
class CLogWatch {
 public:
  CLogWatch(zelk::sim::CWorld& ownWorld, CChecks& ownChecks, const SWorldPlan& worldPlan);
  CLogWatch(const CLogWatch&) = delete;
  CLogWatch& operator=(const CLogWatch&) = delete;

  void Begin();
  void End();
  // Until here it starts the library once more now and then, which begins the log's writer anew and nothing else. For
  // a task.
  void StartNoMore();
  // Once the library has been unloaded: every line of the file is whole, and none of the watch's own is missing.
  void CheckFile();

 private:
  void Run();
  void StartAgain();
  std::string WriteLine();
  void Await(const std::string& mark);

  zelk::sim::CWorld& world;
  const SWorldPlan& plan;
  CChecks& checks;
  zelk::sim::CRandom random;
  zelk::CEvent ending;
  zelk::CThread thread;
  uint64_t lines = 0;
  bool mayStart = true;
  bool isStarting = false;
};

}  // namespace world
