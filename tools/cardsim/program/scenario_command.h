// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>

#include "cardsim/program/options.h"

namespace cardsim {

// Exit codes of a run with a scenario.
enum class EScenarioExit { kAsExpected = 0, kNotAsExpected = 1, kBadFile = 2, kCouldNotRun = 3 };

// Lists the built-in scenarios, or prints one. Returns the exit code.
int ShowBuiltIns(const SOptions& options);

// Plays options.scenario against the library that opens the cards, until its calls have ended or `stop` is set. Says
// what became of each on standard output, and of a scenario that cannot be played on standard error. Returns the exit
// code.
int PlayScenario(const SOptions& options, const std::atomic<bool>& stop);

}  // namespace cardsim
