// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "world/application.h"
#include "world/callers.h"
#include "world/checks.h"
#include "world/far_ends.h"

namespace world {

// Job: at the end of a world, when nothing disturbs it any more, calls of every trunk both ways, and plays that are
// stopped and begun anew. Thread: a task of the application.
class CLastCalls {
 public:
  CLastCalls(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CApplication& application,
             CFarEnds& ends, CCallers& ownCallers);
  CLastCalls(const CLastCalls&) = delete;
  CLastCalls& operator=(const CLastCalls&) = delete;

  void Try();

 private:
  void TryOut(int32_t channel);
  void TryIn(int32_t channel);
  void TryStops();
  bool Connect(int32_t channel);
  void Disconnect(int32_t channel);

  zelk::sim::CWorld& world;
  const SWorldPlan& plan;
  CChecks& checks;
  CApplication& app;
  CFarEnds& farEnds;
  CCallers& callers;
};

}  // namespace world
