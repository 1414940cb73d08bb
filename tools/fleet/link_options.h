// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "fleet/link.h"

namespace CLI {
class App;
}

namespace fleet {

// Adds the options by which a program of the fleet reaches the servers.
void AddLinkOptions(CLI::App& app, SLinkOptions& options);

}  // namespace fleet
