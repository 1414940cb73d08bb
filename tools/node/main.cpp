// SPDX-License-Identifier: GPL-2.0-only
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "fleet/link_options.h"
#include "node/options.h"
#include "phone/phone_error.h"
#include "phone/port_check.h"

namespace {

void AddOptions(CLI::App& app, node::SNodeOptions& options) {
  app.set_config("--config", "", "file with these options, one name = value a line");
  app.add_option("--fleet", options.fleet, "name of the fleet")->capture_default_str();
  app.add_option("--node", options.node, "name of this host in the fleet")->required();
  app.add_option("--rate", options.rate, "calls that may begin in a second (0: no limit)")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--channels", options.channels, "channels that jobs may have at a time (0: all)")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--files", options.files, "folder of sounds and recordings")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  app.add_option("--wait-trunks", options.trunkSeconds, "seconds that the trunks may take to come up")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--drain-limit", options.drainSeconds, "seconds after SIGTERM, then calls that are left are hung up")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--incoming-within", options.incomingMs, "milliseconds that a worker has for its answer")
      ->check(CLI::Range(1, 60000))
      ->capture_default_str();
  app.add_option("--incoming-default", options.incomingDefault,
                 "what is done with a call that no worker answers for: reject, answer, or answer and play this sound")
      ->capture_default_str();
  app.add_flag("--no-numbers", options.hidesNumbers, "leave numbers out of events");
  app.add_flag("--force", options.isForced, "start also when another program uses the cards, and end its calls");
  fleet::AddLinkOptions(app, options.link);
}

int Run(int argc, char** argv) {
  CLI::App app("A host of a fleet: its cards take the fleet's jobs");
  node::SNodeOptions options;
  AddOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(phone::EExit::kUsage);
  }
  try {
    if (!options.isForced) {
      phone::RequireCardsFree();
    }
    node::RunNode(options);
    return 0;
  } catch (const phone::CPhoneError& error) {
    std::fprintf(stderr, "zelk-node: %s\n", error.what());
    return static_cast<int>(error.code);
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "zelk-node: %s\n", error.what());
    return static_cast<int>(phone::EExit::kUsage);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-node: %s\n", error.what());
    return 1;
  }
}
