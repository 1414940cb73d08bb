// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <memory>

#include "common/child_process.h"
#include "trace/core/hdlc_file.h"
#include "trace/program/commands.h"
#include "trace/program/d_channel_export.h"
#include "trace/program/run.h"

namespace trace {
namespace {

EExit ReadHdlc(const std::string& path, ITraceSink& sink) {
  CHdlcFile file(path);
  SConnection connection;
  connection.serial = file.Serial();
  for (SControl frame; file.Next(frame);) {
    sink.OnFrame(connection, frame, {}, EVerdict::kNoMessage);
  }
  if (!file.Fault().empty()) {
    fmt::print(stderr, "zelk-trace: {}\n", file.Fault());
    return EExit::kBadInput;
  }
  return EExit::kDone;
}

// Bytes for a C stream, as a pipe is one.
class CPipeBuffer : public std::streambuf {
 public:
  explicit CPipeBuffer(std::FILE* pipe) : file(pipe) {}

 protected:
  int_type overflow(int_type letter) override { return std::fputc(letter, file) == EOF ? traits_type::eof() : letter; }
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    return static_cast<std::streamsize>(std::fwrite(bytes, 1, static_cast<std::size_t>(count), file));
  }
  int sync() override { return std::fflush(file); }

 private:
  std::FILE* file;
};

EExit ExportTo(std::ostream& out, const SExportOptions& options) {
  CDChannelExport exported(out, {options.anonymise, !options.input.adapter.empty(), {}});
  const bool isHdlc = options.input.adapter.empty() && CHdlcFile::IsOne(options.input.file);
  const EExit result = isHdlc ? ReadHdlc(options.input.file, exported) : Analyse(options.input, exported);
  const std::uint64_t written = exported.End();
  if (!out.flush()) {
    throw CTraceError(errno == EPIPE ? EExit::kDone : EExit::kBadOutput, options.output + ": cannot be written");
  }
  return written == 0 && result == EExit::kDone ? EExit::kNothingFound : result;
}

}  // namespace

EExit RunExport(const SExportOptions& options) {
  if (options.output == "-") {
    CPipeBuffer buffer(stdout);
    std::ostream out(&buffer);
    return ExportTo(out, options);
  }
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  return ExportTo(file, options);
}

EExit RunWireshark(const SExportOptions& options) {
  std::FILE* const pipe = tool::OpenPipeTo("wireshark -k -i -");
  if (pipe == nullptr) {
    throw CTraceError(EExit::kBadOutput, "wireshark cannot be started");
  }
  // Closed in every case: its end is waited for.
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> closes(pipe, &tool::ClosePipe);
  CPipeBuffer buffer(pipe);
  std::ostream out(&buffer);
  return ExportTo(out, options);
}

}  // namespace trace
