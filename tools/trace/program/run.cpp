// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/run.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "trace/live/live_capture.h"

namespace trace {

namespace {

EExit AnalyseFile(CCaptureFile& file, const SInput& input, ITraceSink& sink) {
  CAnalysis analysis(sink, input.trunks);
  analysis.Run(file);
  for (const std::string& note : analysis.Notes()) {
    fmt::print(stderr, "{}: {}: {}\n", input.program, file.Name(), note);
  }
  if (!file.Fault().empty()) {
    fmt::print(stderr, "{}: {}\n", input.program, file.Fault());
    return EExit::kBadInput;
  }
  if (const std::string emptiness = analysis.Emptiness(file); !emptiness.empty()) {
    fmt::print(stderr, "{}: {}\n", input.program, emptiness);
    return EExit::kNothingFound;
  }
  return EExit::kDone;
}

}  // namespace

EExit Analyse(const SInput& input, ITraceSink& sink) {
  if (!input.adapter.empty()) {
    return CaptureLive({input.adapter, input.seconds},
                       [&](CCaptureFile& live) { return AnalyseFile(live, input, sink); });
  }
  CCaptureFile file(input.file);
  return AnalyseFile(file, input, sink);
}

namespace {

[[noreturn]] void FailOutput() {
  throw CTraceError(errno == EPIPE ? EExit::kDone : EExit::kBadOutput,
                    std::string("standard output cannot be written to (") + std::strerror(errno) + ")");
}

}  // namespace

void Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
    FailOutput();
  }
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << contents;
  file.close();
  if (!file) {
    throw CTraceError(EExit::kBadOutput, path + ": cannot be written");
  }
}

void FlushOutput() {
  if (std::fflush(stdout) != 0) {
    FailOutput();
  }
}

}  // namespace trace
