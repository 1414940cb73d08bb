// SPDX-License-Identifier: GPL-2.0-only
#include "trace/extcap/capture.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "common/child_process.h"
#include "trace/core/hdlc_file.h"
#include "trace/extcap/sentences.h"
#include "trace/program/d_channel_export.h"
#include "trace/program/run.h"

namespace trace {
namespace {

// How long a file that has nothing new is left alone. No event of every system tells that it has.
constexpr std::chrono::milliseconds kRest{100};

std::atomic<bool> isStopped{false};

void OnSignal(int) {
  isStopped = true;
}

std::set<std::string> Names(const std::string& list) {
  std::set<std::string> names;
  std::istringstream in(list);
  for (std::string name; std::getline(in, name, ',');) {
    name.erase(0, name.find_first_not_of(' '));
    name.erase(name.find_last_not_of(' ') + 1);
    if (!name.empty()) {
      names.insert(name);
    }
  }
  return names;
}

EExit FollowFile(const std::string& path, CDChannelExport& sink) {
  if (path.empty()) {
    throw CTraceError(EExit::kUsage, "no D-channel file is chosen (--file)");
  }
  CHdlcFile file(path, true);
  tool::OnEndRequest(OnSignal);
  SConnection connection;
  connection.serial = file.Serial();
  while (!isStopped) {
    if (SControl frame; file.Next(frame)) {
      sink.OnFrame(connection, frame, {}, EVerdict::kNoMessage);
    } else if (file.Fault().empty()) {
      std::this_thread::sleep_for(kRest);
    } else {
      throw CTraceError(EExit::kBadInput, file.Fault());
    }
  }
  return EExit::kDone;
}

EExit FollowAdapter(const SExtcapOptions& options, CDChannelExport& sink) {
  SInput input;
  input.adapter = options.interface.substr(std::string(kInterfacePrefix).size());
  input.trunks = options.assumedTrunks;
  input.program = "zelk-extcap";
  const EExit result = Analyse(input, sink);
  return result == EExit::kNothingFound ? EExit::kDone : result;
}

}  // namespace

EExit CaptureInto(const SExtcapOptions& options) {
  std::ofstream out(options.fifo, std::ios::binary);
  if (!out) {
    throw CTraceError(EExit::kBadOutput, "\"" + options.fifo + "\" cannot be written to (--fifo)");
  }
  CDChannelExport sink(out, {options.anonymise, true, Names(options.trunks)});
  return options.interface == kHdlcInterface ? FollowFile(options.file, sink) : FollowAdapter(options, sink);
}

}  // namespace trace
