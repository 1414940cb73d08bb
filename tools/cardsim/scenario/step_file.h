// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <toml.hpp>

#include "cardsim/scenario/scenario.h"

namespace cardsim {

// One step: a table with one verb and what belongs to it. Sounds are looked for in `folder`. Throws CScenarioError.
SStep ReadStep(const toml::value& value, const std::string& folder, bool isFromLibrary);

}  // namespace cardsim
