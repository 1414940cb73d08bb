// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "trace/core/status_page.h"
#include "trace/program/commands.h"

namespace trace {

struct SPageLook {
  SStatusPage page;
  Time now = 0;
  std::string why;  // it is not that of a library that runs; empty for one that does
};

// Reads a status page now. A process that this one cannot see (in a container) counts by its heartbeat, for which this
// waits a moment. Throws CTraceError for what is no page that can be read.
SPageLook LookAtPage(const std::string& path);

// The board on the terminal until a key or a signal ends it.
EExit RunLiveBoard(const SBoardOptions& options);

}  // namespace trace
