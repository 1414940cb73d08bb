// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "trace/core/trace_error.h"

// The verbs of zelk-trace. Each prints to standard output, or writes the file that it was told, and returns what the
// program exits with; what it cannot do at all it throws as a CTraceError.
namespace trace {

struct SInput {
  std::string file;                    // "-" is standard input
  std::string adapter;                 // captured from live; empty for a file
  int seconds = 0;                     // of a live capture; 0: until somebody ends it
  int trunks = 0;                      // of cards of which the capture does not tell it; 0: none
  const char* program = "zelk-trace";  // who speaks on standard error
};

enum class EForm { kText, kCsv, kJson };

struct SCallsOptions {
  SInput input;
  EForm form = EForm::kText;
  std::string number;  // pattern; empty for all
  int cause = -1;      // -1 for all
};

EExit RunCalls(const SCallsOptions& options);

struct SLadderOptions {
  SInput input;
  std::vector<std::uint64_t> calls;  // as `calls` numbers them
  std::string trunk;                 // all calls of it: "100001-2"
  bool layer2 = false;               // every frame of the D-channel while the call goes on
  bool follow = false;               // every call, as its messages come
  std::string svg;                   // file for the picture; empty for text
};

EExit RunLadder(const SLadderOptions& options);

struct SAudioOptions {
  SInput input;
  std::uint64_t call = 0;
  std::string output;
};

EExit RunAudio(const SAudioOptions& options);

struct SExportOptions {
  SInput input;        // a capture, or a D-channel file of the library (.hdlc)
  std::string output;  // "-" is standard output
  bool anonymise = false;
};

EExit RunExport(const SExportOptions& options);
// The same into Wireshark's window, live.
EExit RunWireshark(const SExportOptions& options);

enum class EBoardForm { kText, kJson, kMetrics };

struct SBoardOptions {
  SInput input;        // neither file nor adapter: the status page alone
  std::string status;  // file of a status page; empty for none
  bool once = false;   // no screen
  EBoardForm form = EBoardForm::kText;
};

EExit RunBoard(const SBoardOptions& options);

}  // namespace trace
