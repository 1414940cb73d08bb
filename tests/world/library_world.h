// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>

#include "platform/simulated/world.h"

namespace zelk::sim {

// Runs main, an application's first thread, in this world with a library that was never used before, and unloads the
// library at the end: its log is written, its threads have ended. The library is one a process, so its objects are made
// anew where they stand.
// Thread: as CWorld::Run. After a verdict other than kEnded the process can run no other library.
SOutcome RunLibrary(CWorld& world, const std::function<void()>& main);

}  // namespace zelk::sim
