// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "world/run.h"

namespace world {

// Days of a busy trunk on which nothing goes wrong: each channel has one call after the other, on half of them dialled
// by the application, on the others offered by the exchange. Each is answered and hung up at once. The events of every
// call have to be exactly those of such a call, the exchange has none left afterwards, and but for what is under way
// there are as many bytes in use as after the first thousand calls. In this process: once, before any other world.
SRunResult RunManyCalls(uint64_t seed, uint64_t calls);

}  // namespace world
