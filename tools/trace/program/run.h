// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "trace/core/analysis.h"
#include "trace/program/commands.h"

namespace trace {

// Reads the whole input into the sink; says on standard error what is missing in it. What the program exits with:
// kDone, kNothingFound for a capture without a card, kBadInput for one that breaks off.
EExit Analyse(const SInput& input, ITraceSink& sink);

// Writes to standard output. Throws CTraceError when that cannot be written to; a reader that has gone is none of that.
void Print(const std::string& text);
// Throws CTraceError when the file cannot be written.
void WriteFile(const std::string& path, const std::string& contents);
// All that was printed has arrived.
void FlushOutput();

}  // namespace trace
