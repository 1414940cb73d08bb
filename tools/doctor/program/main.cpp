// SPDX-License-Identifier: GPL-2.0-only

// zelk-doctor: what is wrong with a library, its machine and its cards, from their files and from a capture.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include "common/standard_input.h"
#include "doctor/program/examine.h"
#include "doctor/program/report.h"

namespace {

constexpr int kUsage = 4;
constexpr int kFailed = 5;

int Run(int argc, char** argv) {
  CLI::App app(
      "What is wrong with a library, its machine and its cards: from the files beside the library and from a capture "
      "of the network. It sends nothing and opens no card.");
  app.allow_windows_style_options(false);  // a path may begin with a slash
  doctor::SOptions options;
  app.add_option("--library", options.library,
                 "the library, or the folder that it is in: ini file, log, status page, D-channel files");
  app.add_option("--log", options.log, "log of a library, of any machine");
  auto* capture = app.add_option("--capture", options.capture,
                                 "capture of the cards' network, pcap or pcapng, - is standard input; or a D-channel "
                                 "file of the library (zelk-SERIAL-TRUNK.hdlc)");
  auto* adapter =
      app.add_option("-i,--interface", options.adapter, "capture from this adapter with dumpcap")->excludes(capture);
  app.add_option("--seconds", options.seconds, "how long")
      ->check(CLI::Range(1, 1000000))
      ->needs(adapter)
      ->capture_default_str();
  app.add_option("--trunks", options.trunks, "trunks of a card of which the capture does not show it")
      ->check(CLI::Range(1, 8));
  app.add_flag("--json", options.json, "one JSON object a line");
  app.add_flag("--probe", options.probe, "ask for cards with the library's probe; refused beside a running library");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  const doctor::Findings findings = doctor::Examine(options);
  const std::string text = options.json ? doctor::JsonReport(findings) : doctor::TextReport(findings);
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    if (errno != EPIPE) {
      std::fprintf(stderr, "zelk-doctor: standard output cannot be written to (%s)\n", std::strerror(errno));
      return kFailed;
    }
  }
  return doctor::ExitCode(findings);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is told by the write
#endif
  tool::KeepStandardBytes();
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-doctor: %s\n", error.what());
    return kFailed;
  }
}
