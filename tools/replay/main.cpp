// SPDX-License-Identifier: GPL-2.0-only

// zelk-replay: a captured D-channel, fed to the library's own card and call code in virtual time.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

#include "replay/replay.h"
#include "trace/core/trace_error.h"

namespace {

enum EReplayExit { kSame = 0, kDifferent = 1, kUnusable = 2 };

struct SOptions {
  std::string file;
  std::string trunk;
  std::string ini;
  int trunks = 0;
  bool json = false;
};

std::optional<zelk::STrunkSettings> ReadSettings(const SOptions& options, const replay::SRecording& recording) {
  if (options.ini.empty()) {
    return std::nullopt;
  }
  zelk::Config().Read(options.ini);
  return zelk::Config().ReadTrunk(recording.serial, static_cast<std::uint32_t>(recording.trunk) + 1);
}

EReplayExit Replay(const SOptions& options) {
  const replay::SRecording recording = replay::ReadRecording(options.file, options.trunk, options.trunks);
  for (const std::string& note : recording.notes) {
    std::fprintf(stderr, "zelk-replay: %s: %s\n", options.file.c_str(), note.c_str());
  }
  replay::CReport report(options.json, stdout);
  replay::StartAt(recording.items.front().time);
  const std::optional<zelk::STrunkSettings> settings = ReadSettings(options, recording);
  zelk::InstallPriMessageHook();
  replay::CReplay replay(recording, settings, report);
  return replay.Run() ? kSame : kDifferent;
}

int Run(int argc, char** argv) {
  CLI::App app("A captured D-channel, fed to the library's own card and call code in virtual time");
  SOptions options;
  app.add_option("file", options.file,
                 "capture, pcap or pcapng, or what zelk-trace export made of one; - is standard input")
      ->required();
  app.add_option("--trunk", options.trunk, "serial number of the card (or its address) and trunk, as in 100001-2")
      ->required();
  app.add_option("--ini", options.ini, "settings of the trunk; without it they follow from the capture")
      ->check(CLI::ExistingFile);
  app.add_option("--trunks", options.trunks, "trunks of a card of which the capture does not show it")
      ->check(CLI::Range(1, 8));
  app.add_flag("--json", options.json, "an object a line");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUnusable;
  }
  const EReplayExit result = Replay(options);
  if (std::fflush(stdout) != 0 && errno != EPIPE) {
    std::fprintf(stderr, "zelk-replay: standard output cannot be written to\n");
    return kUnusable;
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is told by the write
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-replay: %s\n", error.what());
    return kUnusable;
  }
}
