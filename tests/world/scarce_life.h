// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "world/run.h"

namespace world {

struct SScarceAllocations {
  uint32_t first = 1;  // of the library's own code, from its start on
  uint32_t count = 1;
};

// These allocations fail in a short life of the library: start, a call each way with sound from memory or a file,
// shut-down. Whatever that costs this life, nobody waits for ever, no thread dies, every export returns; and the next
// life is one as if nothing had been. The result tells how many allocations the first life came to, all of them where
// none fails, and the complete calls of both, which then are 4.
// In this process: once. The program's operator new must be that of allocation_probe.h.
SRunResult RunScarceLife(uint64_t seed, const SScarceAllocations& failing);

}  // namespace world
