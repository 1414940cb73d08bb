// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "trace/core/trace_error.h"

// The verbs of zelk-trace. Each prints to standard output, or writes the file that it was told, and returns what the
// program exits with; what it cannot do at all it throws as a CTraceError.
namespace trace {

struct SInput {
  std::string file;  // "-" is standard input
  int trunks = 0;    // of cards of which the capture does not tell it; 0: none
};

enum class EForm { kText, kCsv, kJson };

struct SCallsOptions {
  SInput input;
  EForm form = EForm::kText;
  std::string number;  // pattern; empty for all
  int cause = -1;      // -1 for all
};

EExit RunCalls(const SCallsOptions& options);

}  // namespace trace
