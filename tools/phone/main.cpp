// SPDX-License-Identifier: GPL-2.0-only
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "phone/commands.h"
#include "phone/phone_error.h"
#include "phone/port_check.h"

namespace {

void AddScriptOptions(CLI::App& command, phone::SCallScript& script) {
  command.add_option("--digits", script.digits,
                     "DTMF digits to send once connected: 0-9 * # A-D, and a comma for a pause of a second");
  command.add_option("--play", script.playFile,
                     "WAV file to play then: 8000 Hz mono, 16-bit or 8-bit linear, A-law or mu-law");
  command.add_option("--record", script.recordFile,
                     "WAV file to record the far end into, from the answer or the dialling on");
  command.add_option("--hold", script.holdSeconds, "hang up this many seconds after the connection (0: never)")
      ->check(CLI::NonNegativeNumber);
  command.add_flag("--hangup-after-play", script.hangupAfterPlay, "hang up when the digits and the file are played");
}

CLI::App* AddAnswerCommand(CLI::App& app, phone::SAnswerOptions& answer) {
  CLI::App* command = app.add_subcommand("answer", "wait for calls, answer, play, record");
  command->add_option("--channel", answer.channel, "take calls on this channel only")->check(CLI::NonNegativeNumber);
  command->add_option("--calls", answer.calls, "end after so many connected calls (0: run until stopped)")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command->add_option("--wait", answer.waitSeconds, "give up when no call comes for so many seconds (0: never)")
      ->check(CLI::NonNegativeNumber);
  AddScriptOptions(*command, answer.script);
  return command;
}

CLI::App* AddDialCommand(CLI::App& app, phone::SDialOptions& dial) {
  CLI::App* command = app.add_subcommand("dial", "place a call");
  command->add_option("channel", dial.channel, "channel to call on")->required()->check(CLI::NonNegativeNumber);
  command->add_option("number", dial.number, "number to call")->required();
  command->add_option("--from", dial.from, "own number to show");
  command->add_option("--answer-within", dial.answerSeconds, "hang up when not connected after so many seconds")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  AddScriptOptions(*command, dial.script);
  return command;
}

// Runs the command between the first and the last line of --json; returns the exit code.
int Report(bool asJson, const std::string& name, const std::function<void(phone::CReport&)>& command) {
  phone::CReport report(asJson);
  phone::EExit code = phone::EExit::kDone;
  std::string message;
  report.Hello(name);
  try {
    command(report);
  } catch (const phone::CPhoneError& error) {
    code = error.code;
    message = error.what();
  } catch (const std::exception& error) {
    code = phone::EExit::kFailed;
    message = error.what();
  }
  report.End(code, message);
  if (report.Failed()) {
    code = phone::EExit::kFile;
    message = "cannot write standard output";
  }
  if (code != phone::EExit::kDone && !report.Closed()) {
    std::fprintf(stderr, "zelk-phone: %s\n", message.c_str());
  }
  return static_cast<int>(code);
}

int Run(int argc, char** argv) {
  CLI::App app("A command-line telephone on ISDN primary-rate trunks");
  app.require_subcommand(1);
  app.fallthrough();  // what stands here may also be given after the command
  int trunkSeconds = 10;
  app.add_option("--wait-trunks", trunkSeconds, "seconds that the trunks may take to come up")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  bool isForced = false;
  app.add_flag("--force", isForced, "start also when another program uses the cards, and end its calls");
  bool asJson = false;
  app.add_flag("--json", asJson, "write one JSON object a line, as docs/zelk-phone.schema.json has them");
  app.add_subcommand("channels", "list the channels with card, trunk, timeslot and state; fails when none is usable");
  phone::SAnswerOptions answer;
  const CLI::App* answerCommand = AddAnswerCommand(app, answer);
  phone::SDialOptions dial;
  const CLI::App* dialCommand = AddDialCommand(app, dial);
  const CLI::App* serveCommand =
      app.add_subcommand("serve", "take commands on all channels from standard input, one JSON object a line");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(phone::EExit::kUsage);
  }
  return Report(asJson || serveCommand->parsed(), app.get_subcommands().front()->get_name(),
                [&](phone::CReport& report) {
                  if (!isForced) {
                    phone::RequireCardsFree();
                  }
                  if (answerCommand->parsed()) {
                    phone::RunAnswer(report, answer, trunkSeconds);
                  } else if (dialCommand->parsed()) {
                    phone::RunDial(report, dial, trunkSeconds);
                  } else if (serveCommand->parsed()) {
                    phone::RunServe(report, trunkSeconds);
                  } else {
                    phone::RunChannels(report, trunkSeconds);
                  }
                });
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-phone: %s\n", error.what());
    return 1;
  }
}
