// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "trace/core/trace_error.h"

namespace trace {

struct SExtcapOptions {
  std::string interface;
  std::string fifo;
  std::string file;       // of the interface of files alone
  std::string trunks;     // names, commas between; empty for all
  int assumedTrunks = 0;  // of cards of which the capture does not tell it; 0: none
  bool anonymise = false;
};

// Writes D-channels to the FIFO until its reader has gone or somebody asks this program to end. Throws CTraceError when
// the source cannot be read or the FIFO not be opened.
EExit CaptureInto(const SExtcapOptions& options);

}  // namespace trace
