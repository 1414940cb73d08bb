// SPDX-License-Identifier: GPL-2.0-only

// zelk-extcap: D-channels as interfaces of Wireshark, which runs this program from its extcap folder: to ask which
// interfaces there are, what they are like, what can be chosen, and to have one captured into a FIFO.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "trace/extcap/capture.h"
#include "trace/extcap/sentences.h"

namespace {

using trace::EExit;

// What Wireshark asks for, as the names of its options have it.
struct SQuestion {
  bool interfaces = false;
  bool dlts = false;
  bool config = false;
  bool capture = false;
  std::string filter;
  std::string version;  // Wireshark's own
  trace::SExtcapOptions options;
};

void AddOptions(CLI::App& app, SQuestion& asked) {
  app.set_version_flag("--version", trace::kExtcapVersion);
  app.add_flag("--extcap-interfaces", asked.interfaces, "the interfaces that there are");
  app.add_option("--extcap-version", asked.version, "version of Wireshark");
  app.add_option("--extcap-interface", asked.options.interface, "zelk-ADAPTER, or zelk-hdlc for a D-channel file");
  app.add_flag("--extcap-dlts", asked.dlts, "the link types of an interface");
  app.add_flag("--extcap-config", asked.config, "what can be chosen for an interface");
  app.add_option("--extcap-capture-filter", asked.filter, "there is none: D-channels have display filters");
  app.add_flag("--capture", asked.capture, "capture an interface into --fifo");
  app.add_option("--fifo", asked.options.fifo, "where Wireshark reads");
  app.add_option("--file", asked.options.file, "D-channel file of the library, zelk-SERIAL-TRUNK.hdlc");
  app.add_option("--trunk", asked.options.trunks, "only these, as 100001-2 or 100001, commas between; else all");
  app.add_option("--assume-trunks", asked.options.assumedTrunks,
                 "trunks of a card of which the capture does not show it")
      ->check(CLI::Range(0, 8));
  app.add_flag("--anonymise", asked.options.anonymise, "other digits for numbers, and no texts");
}

EExit Answer(const SQuestion& asked) {
  if (asked.interfaces) {
    trace::PrintInterfaces();
    return EExit::kDone;
  }
  trace::RequireInterface(asked.options.interface);
  if (asked.dlts) {
    trace::PrintDlts();
  } else if (asked.config) {
    trace::PrintConfig(asked.options.interface);
  } else if (!asked.filter.empty()) {
    throw trace::CTraceError(EExit::kUsage, trace::kNoFilter);
  } else if (asked.capture) {
    return trace::CaptureInto(asked.options);
  }
  return EExit::kDone;
}

int Run(int argc, char** argv) {
  CLI::App app("D-channels of ZelkBoard cards as interfaces of Wireshark, which starts this program itself");
  SQuestion asked;
  AddOptions(app, asked);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(EExit::kUsage);
  }
  return static_cast<int>(Answer(asked));
}

}  // namespace

int main(int argc, char** argv) {
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is told by the write
#endif
  try {
    return Run(argc, argv);
  } catch (const trace::CTraceError& error) {
    if (error.Code() != EExit::kDone) {
      std::fprintf(stderr, "zelk-extcap: %s\n", error.what());
    }
    return static_cast<int>(error.Code());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-extcap: %s\n", error.what());
    return static_cast<int>(EExit::kBadInput);
  }
}
