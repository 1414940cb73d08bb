// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/event.h"
#include "platform/simulated/world.h"
#include "platform/thread.h"

namespace world {

// Job: the threads of an application: each does what it was given, at its time, in order.
// Thread: tasks of the world. Join returns once every work has been done.
class CWorkers {
 public:
  CWorkers(zelk::sim::CWorld& ownWorld, int threads);
  CWorkers(const CWorkers&) = delete;
  CWorkers& operator=(const CWorkers&) = delete;

  void Do(int thread, int64_t atUs, std::function<void()> work);
  bool Join(int64_t mostMs);

 private:
  struct SWorker {
    zelk::CThread thread;
    zelk::CEvent changed;
    std::multimap<int64_t, std::function<void()>> queue;
    bool isEnding = false;
  };

  void Run(SWorker& worker);

  zelk::sim::CWorld& world;
  std::vector<std::unique_ptr<SWorker>> workers;
};

}  // namespace world
