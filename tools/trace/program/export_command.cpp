// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <deque>
#include <fstream>
#include <map>

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
  explicit CExport(const SExportOptions& exportOptions)
      : options(exportOptions), file(options.output, std::ios::binary | std::ios::trunc), writer(file) {}

  void OnFrame(const SConnection& connection, const SControl& frame, const tool::SQ921Frame&, EVerdict) override {
    const Key key{connection.number, frame.trunk};
    CDataLink& link = links[key];
    link.OnFrame(frame, tool::DecodeFrame(frame.body));
    waiting.push_back({key, {CardName(connection), connection.serial, frame.trunk, false, frame}});
    WriteKnown();
    if (waiting.size() > kMostWaiting) {
      WriteFirst();
    }
  }
  // Throws CTraceError when something could not be written.
  std::uint64_t End() {
    while (!waiting.empty()) {
      WriteFirst();
    }
    file.close();
    if (!file) {
      throw CTraceError(EExit::kBadOutput, options.output + ": cannot be written");
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
  std::ofstream file;
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

}  // namespace

EExit RunExport(const SExportOptions& options) {
  CExport exported(options);
  const EExit result =
      CHdlcFile::IsOne(options.input.file) ? ReadHdlc(options.input.file, exported) : Analyse(options.input, exported);
  return exported.End() == 0 && result == EExit::kDone ? EExit::kNothingFound : result;
}

}  // namespace trace
