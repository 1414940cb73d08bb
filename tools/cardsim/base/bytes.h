// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "common/bytes.h"

// The simulator speaks of bytes, wire formats, Q.931 and A-law in the words that all tools share.
namespace tool {}
namespace cardsim {
using namespace tool;  // NOLINT(google-build-using-namespace)
}
