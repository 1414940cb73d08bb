// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "cardsim/scenario/scenario.h"

namespace cardsim {

// Reads a scenario of TOML; see docs/simulator.md. `name` is that of its file, in whose folder sounds are looked for.
// Throws CScenarioError for whatever is not as it should be, with file, line and column; nothing is guessed over.
SScenario ParseScenario(const std::string& toml, const std::string& name);

// The same of a file, or of a built-in one: "builtin:NAME".
SScenario ReadScenario(const std::string& path);

}  // namespace cardsim
