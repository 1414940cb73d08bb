// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>

#include "world/plan.h"

namespace world {

// The plan without what it fails without, too: faults, offered calls and steps are left out, in halves
// and then one by one, as long as fails says so of what is left.
SWorldPlan Shrink(SWorldPlan plan, const std::function<bool(const SWorldPlan&)>& fails);

}  // namespace world
