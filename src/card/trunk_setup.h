// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "card/card_core.h"

namespace zelk {

// The two passes over a card's trunks while it is opened, each trunk with its section of the ini file.
// Thread: opener.

// Sends every trunk its configuration.
void ConfigureTrunks(CCardCore& core);
// Reads the rest of every section, opens the captures, makes the cancellers and, under the trunk's lock, the
// controllers.
void SetUpTrunks(CCardCore& core, uint32_t generation);

}  // namespace zelk
