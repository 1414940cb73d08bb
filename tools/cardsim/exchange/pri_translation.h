// SPDX-License-Identifier: GPL-2.0-only
#pragma once

extern "C" {
#include <libpri.h>
}

#include <optional>

#include "cardsim/exchange/pri_event.h"

namespace cardsim {

// What libpri returned, in plain terms; nothing where it had no event to give.
std::optional<SPriEvent> FromLibpri(const pri_event* source);

}  // namespace cardsim
