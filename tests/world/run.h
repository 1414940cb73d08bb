// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "world/plan.h"

namespace world {

struct SRunResult {
  std::vector<std::string> failures;  // empty: everything held
  uint64_t hash = 0;
  uint64_t steps = 0;
  int64_t virtualMs = 0;
  uint64_t calls = 0;          // that a far end had
  uint64_t comparedCalls = 0;  // whose sound was looked at
  uint64_t events = 0;
  int64_t grownBytes = 0;    // memory in use at the end, over that at the beginning: where many calls were made
  uint64_t allocations = 0;  // of the library's own code, where one is to fail
  std::string log;           // the library's, where something failed
  std::string eventText;

  std::string ToText() const;  // for FromText: between processes
  static std::optional<SRunResult> FromText(const std::string& text);
};

// Where what passes the library's adapter is written, as pcapng.
struct SWireFile {
  std::string path;  // empty: nowhere
  bool hasSound = false;
};

// One world, from the library's start to its end, with all checks. In this process: once, before any other.
SRunResult RunWorld(const SWorldPlan& plan, const SWireFile& wire = {});
// A run in a process of its own, as often as wanted. A process that dies is a failure.
SRunResult RunApart(const std::function<SRunResult()>& run);
SRunResult RunWorldApart(const SWorldPlan& plan, const SWireFile& wire = {});

}  // namespace world
