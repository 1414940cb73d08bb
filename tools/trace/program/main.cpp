// SPDX-License-Identifier: GPL-2.0-only

// zelk-trace: what cards and library said to each other, from a capture of the network between them.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>

#include "common/standard_input.h"
#include "trace/program/commands.h"
#include "trace/program/run.h"

namespace {

using trace::EExit;
using Action = std::function<EExit()>;

void AddInput(CLI::App& command, trace::SInput& input) {
  command.add_option("file", input.file, "capture, pcap or pcapng; - is standard input");
  command.add_option("--trunks", input.trunks, "trunks of a card of which the capture does not show it")
      ->check(CLI::Range(1, 8));
}

void AddFile(CLI::App& command, trace::SInput& input) {
  AddInput(command, input);
  command.get_option("file")->required();
}

// Where it can be live: a file or an adapter.
void AddLive(CLI::App& command, trace::SInput& input) {
  AddInput(command, input);
  command.add_option("-i,--interface", input.adapter, "capture from this adapter with dumpcap, until Ctrl-C")
      ->excludes("file");
  command.add_option("--seconds", input.seconds, "how long")->check(CLI::Range(1, 1000000))->needs("-i");
}

void Require(bool isThere, const char* what) {
  if (!isThere) {
    throw CLI::RequiredError(what);
  }
}

bool HasInput(const trace::SInput& input) {
  return !input.file.empty() || !input.adapter.empty();
}

void RequireInput(const trace::SInput& input) {
  Require(HasInput(input), "file or -i");
}

void AddCalls(CLI::App& app, trace::SCallsOptions& options, Action& action) {
  CLI::App* command = app.add_subcommand("calls", "one line a call");
  AddLive(*command, options.input);
  auto* csv = command->add_flag_callback(
      "--csv", [&] { options.form = trace::EForm::kCsv; }, "comma-separated values");
  command
      ->add_flag_callback(
          "--json", [&] { options.form = trace::EForm::kJson; }, "an array of objects")
      ->excludes(csv);
  command->add_option("--number", options.number, "only calls from or to this number; * and ? stand for digits");
  command->add_option("--cause", options.cause, "only calls cleared with this cause")->check(CLI::Range(0, 127));
  command->callback([&] {
    RequireInput(options.input);
    action = [&] { return trace::RunCalls(options); };
  });
}

void AddLadder(CLI::App& app, trace::SLadderOptions& options, Action& action) {
  CLI::App* command = app.add_subcommand("ladder", "the messages of calls between exchange and library");
  AddLive(*command, options.input);
  command->add_option("--call", options.calls, "numbers of calls, as calls tells them")->allow_extra_args(false);
  command->add_option("--trunk", options.trunk, "all calls of this trunk, as 100001-2");
  auto* follow = command->add_flag("--follow", options.follow, "the messages of every call as they come")->needs("-i");
  command->add_flag("--layer2", options.layer2, "every frame of the D-channel while the call goes on")
      ->excludes(follow);
  command->add_option("--svg", options.svg, "write a picture to this file")->excludes(follow);
  command->callback([&] {
    RequireInput(options.input);
    Require(!options.calls.empty() || !options.trunk.empty() || options.follow, "--call or --trunk");
    action = [&] { return trace::RunLadder(options); };
  });
}

void AddAudio(CLI::App& app, trace::SAudioOptions& options, Action& action) {
  CLI::App* command = app.add_subcommand("audio", "the sound of a call: from the line left, to the line right");
  AddFile(*command, options.input);
  command->add_option("--call", options.call, "number of the call, as calls tells it")->required();
  command->add_option("-o,--output", options.output, "WAV file")->required();
  command->callback([&] { action = [&] { return trace::RunAudio(options); }; });
}

void AddExport(CLI::App& app, trace::SExportOptions& options, Action& action) {
  CLI::App* command = app.add_subcommand("export", "the D-channels alone, for Wireshark");
  AddLive(*command, options.input);
  command->add_option("-o,--output", options.output, "pcapng file; - is standard output")->required();
  command->add_flag("--anonymise", options.anonymise, "other digits for numbers, and no texts");
  command->callback([&] {
    RequireInput(options.input);
    action = [&] { return trace::RunExport(options); };
  });
}

void AddWireshark(CLI::App& app, trace::SExportOptions& options, Action& action) {
  CLI::App* command = app.add_subcommand("wireshark", "Wireshark opens and shows the D-channels live");
  AddLive(*command, options.input);
  command->add_flag("--anonymise", options.anonymise, "other digits for numbers, and no texts");
  command->callback([&] {
    RequireInput(options.input);
    action = [&] { return trace::RunWireshark(options); };
  });
}

void AddBoard(CLI::App& app, trace::SBoardOptions& options, Action& action) {
  CLI::App* command = app.add_subcommand("board", "every trunk and channel, live or at the end of a capture");
  AddLive(*command, options.input);
  command->add_option("--status", options.status, "status page of a library, instead or besides");
  command->add_flag("--once", options.once, "show it once and end, as it does without a terminal");
  auto* json = command->add_flag_callback(
      "--json", [&] { options.form = trace::EBoardForm::kJson; }, "as an object");
  command
      ->add_flag_callback(
          "--metrics", [&] { options.form = trace::EBoardForm::kMetrics; },
          "as text that Prometheus collects from a folder")
      ->excludes(json);
  command->callback([&] {
    const bool hasWire = HasInput(options.input);
    Require(hasWire || !options.status.empty(), "file, -i or --status");
    if (hasWire && !options.status.empty() && options.form != trace::EBoardForm::kText) {
      throw CLI::ValidationError("--json and --metrics have one source");
    }
    action = [&] { return trace::RunBoard(options); };
  });
}

int Run(int argc, char** argv) {
  CLI::App app("What cards and library said to each other, from a capture of the network between them");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may begin with a slash
  Action action;
  trace::SCallsOptions calls;
  AddCalls(app, calls, action);
  trace::SLadderOptions ladder;
  AddLadder(app, ladder, action);
  trace::SAudioOptions audio;
  AddAudio(app, audio, action);
  trace::SExportOptions exported;
  AddExport(app, exported, action);
  trace::SExportOptions shown;
  AddWireshark(app, shown, action);
  trace::SBoardOptions board;
  AddBoard(app, board, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(EExit::kUsage);
  }
  const EExit result = action();
  trace::FlushOutput();
  return static_cast<int>(result);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is told by the write
#endif
  tool::KeepStandardBytes();
  try {
    return Run(argc, argv);
  } catch (const trace::CTraceError& error) {
    if (error.Code() != EExit::kDone) {
      std::fprintf(stderr, "zelk-trace: %s\n", error.what());
    }
    return static_cast<int>(error.Code());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-trace: %s\n", error.what());
    return static_cast<int>(EExit::kBadInput);
  }
}
