// SPDX-License-Identifier: GPL-2.0-only
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "fleet/commands.h"
#include "fleet/link_options.h"

namespace {

constexpr int kUsage = 2;

struct SAll {
  std::string fleet = "zelk";
  fleet::SLinkOptions link;
  fleet::SInitOptions init;
  std::string file;
  std::string node;
  bool asTable = false;
  bool asJson = false;
  bool isOnce = false;
  std::vector<std::string> files;
};

using Command = std::function<int(const fleet::SNames&)>;

void AddInit(CLI::App& app, SAll& all, Command& chosen) {
  auto* command = app.add_subcommand("init", "make the streams and buckets of the fleet");
  const auto number = [command](const char* name, int& value, const char* text) {
    command->add_option(name, value, text)->check(CLI::Range(1, 36500))->capture_default_str();
  };
  number("--replicas", all.init.replicas, "servers that hold a copy of everything: 1, 3 or 5");
  number("--ack-wait", all.init.ackWaitSeconds, "seconds without a word of its host, then a job goes to another one");
  number("--node-life", all.init.lifeSeconds, "seconds without a word of a host, then it is dead");
  number("--keep-days", all.init.keepDays, "days that results and claims are kept");
  number("--duplicate-hours", all.init.duplicateHours, "hours that ids of jobs are remembered");
  command->callback([&] { chosen = [&](const auto& names) { return fleet::RunInit(all.link, names, all.init); }; });
}

void AddJobCommands(CLI::App& app, SAll& all, Command& chosen) {
  auto* submit = app.add_subcommand("submit", "submit jobs: a table, or a line of JSON each; safe to run twice");
  submit->add_option("file", all.file, "the file, or - for standard input")->required();
  submit->callback([&] { chosen = [&](const auto& names) { return fleet::RunSubmit(all.link, names, all.file); }; });
  auto* results = app.add_subcommand("results", "all results, a line of JSON each");
  results->add_flag("--csv", all.asTable, "as a table");
  results->callback(
      [&] { chosen = [&](const auto& names) { return fleet::RunResults(all.link, names, all.asTable); }; });
}

void AddHostCommands(CLI::App& app, SAll& all, Command& chosen) {
  auto* nodes = app.add_subcommand("nodes", "the hosts that live");
  nodes->add_flag("--json", all.asJson, "a line of JSON each");
  nodes->callback([&] { chosen = [&](const auto& names) { return fleet::RunNodes(all.link, names, all.asJson); }; });
  auto* drain = app.add_subcommand("drain", "have a host take no more jobs");
  drain->add_option("node", all.node, "name of the host")->required();
  drain->callback([&] { chosen = [&](const auto& names) { return fleet::RunDrain(all.link, names, all.node); }; });
}

void AddWorkCommands(CLI::App& app, SAll& all, Command& chosen) {
  auto* watch = app.add_subcommand("watch", "how the jobs stand, each second");
  watch->add_flag("--json", all.asJson, "a line of JSON each time");
  watch->add_flag("--once", all.isOnce, "once");
  watch->callback(
      [&] { chosen = [&](const auto& names) { return fleet::RunWatch(all.link, names, all.asJson, all.isOnce); }; });
  auto* work = app.add_subcommand("work", "decide what is done with incoming calls, by lines of JSON");
  work->callback([&] { chosen = [&](const auto& names) { return fleet::RunWork(all.link, names); }; });
  auto* sound = app.add_subcommand("sound", "give the fleet sounds, 1 MB each at most, under the names of their files");
  sound->add_option("files", all.files, "WAV files")->required()->check(CLI::ExistingFile);
  sound->callback([&] { chosen = [&](const auto& names) { return fleet::RunSound(all.link, names, all.files); }; });
}

int Run(int argc, char** argv) {
  CLI::App app("Jobs for a fleet of hosts, and what became of them");
  app.require_subcommand(1);
  app.fallthrough();
  SAll all;
  Command chosen;
  app.set_config("--config", "", "file with these options, one name = value a line");
  app.add_option("--fleet", all.fleet, "name of the fleet")->capture_default_str();
  fleet::AddLinkOptions(app, all.link);
  AddInit(app, all, chosen);
  AddJobCommands(app, all, chosen);
  AddHostCommands(app, all, chosen);
  AddWorkCommands(app, all, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  try {
    all.link.name = "zelk-fleet";
    return chosen(fleet::SNames(all.fleet));
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "zelk-fleet: %s\n", error.what());
    return kUsage;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-fleet: %s\n", error.what());
    return 1;
  }
}
