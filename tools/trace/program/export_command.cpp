// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <deque>
#include <fstream>
#include <map>
#include <memory>

#include "trace/core/anonymiser.h"
#include "trace/core/hdlc_file.h"
#include "trace/core/pcapng_writer.h"
#include "trace/program/commands.h"
#include "trace/program/run.h"

namespace trace {
namespace {

// Job: writes the frames in their order. A frame waits until its trunk's roles are known: the pseudo-header tells them.
class CExport : public ITraceSink {
 public:
  CExport(const SExportOptions& exportOptions, std::ostream& stream)
      : options(exportOptions), isLive(!options.input.adapter.empty()), out(stream), writer(stream) {}

  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame&, EVerdict) override {
    const Key key{connection.number, frame.trunk};
    CDataLink& link = links[key];
    link.OnFrame(frame, tool::DecodeFrame(frame.body));
    waiting.push_back({key, {CardName(connection), connection.serial, frame.trunk, false, frame}});
    WriteKnown();
    // Somebody looks on: the roles may not be told for hours.
    while (isLive ? !waiting.empty() : waiting.size() > kMostWaiting) {
      WriteFirst();
    }
    if (isLive && !out.flush()) {
      throw CTraceError(EExit::kDone, "the reader has gone");
    }
  }
  // Throws CTraceError when something could not be written.
  std::uint64_t End() {
    while (!waiting.empty()) {
      WriteFirst();
    }
    if (!out.flush()) {
      throw CTraceError(errno == EPIPE ? EExit::kDone : EExit::kBadOutput, options.output + ": cannot be written");
    }
    return written;
  }

 private:
  using Key = std::pair<int, int>;  // connection and trunk
  static constexpr std::size_t kMostWaiting = 100'000;

  void WriteKnown() {
    while (!waiting.empty() && links[waiting.front().first].IsLibraryNetwork()) {
      WriteFirst();
    }
  }
  void WriteFirst() {
    SExported& exported = waiting.front().second;
    exported.isLibraryNetwork = links[waiting.front().first].IsLibraryNetwork().value_or(false);
    if (options.anonymise) {
      exported.frame.body = anonymiser.Anonymise(exported.frame.body);
    }
    writer.Write(exported);
    waiting.pop_front();
    ++written;
  }

  const SExportOptions& options;
  const bool isLive;
  std::ostream& out;
  CPcapngWriter writer;
  CAnonymiser anonymiser;
  std::map<Key, CDataLink> links;
  std::deque<std::pair<Key, SExported>> waiting;
  std::uint64_t written = 0;
};

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
  CExport exported(options, out);
  const bool isHdlc = options.input.adapter.empty() && CHdlcFile::IsOne(options.input.file);
  const EExit result = isHdlc ? ReadHdlc(options.input.file, exported) : Analyse(options.input, exported);
  return exported.End() == 0 && result == EExit::kDone ? EExit::kNothingFound : result;
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
  std::FILE* const pipe = popen("exec wireshark -k -i -", "w");
  if (pipe == nullptr) {
    throw CTraceError(EExit::kBadOutput, "wireshark cannot be started");
  }
  // Closed in every case: its end is waited for.
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> closes(pipe, &pclose);
  CPipeBuffer buffer(pipe);
  std::ostream out(&buffer);
  return ExportTo(out, options);
}

}  // namespace trace
