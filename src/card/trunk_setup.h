#pragma once

#include <cstdint>

#include "card/card_core.h"

namespace zelk {

// libpri's node type for a "ClientType": 1000 and 1001 stand for 5 and 10, everything else for itself.
int32_t NodeTypeOf(int32_t clientType);

// The two passes over a card's trunks at its opening, each trunk with its section of the ini file.
// Thread: opener.

// Sends every trunk its configuration.
void ConfigureTrunks(CCardCore& core);
// Reads the rest of every section, opens the captures, makes the cancellers and, under the trunk's lock, the
// controllers.
void SetUpTrunks(CCardCore& core, uint32_t opening);

}  // namespace zelk
