// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/scenario_command.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "cardsim/card/simulator.h"
#include "cardsim/program/report.h"
#include "cardsim/scenario/builtins.h"
#include "cardsim/scenario/junit.h"
#include "cardsim/scenario/scenario_file.h"
#include "cardsim/scenario/scenario_run.h"

namespace cardsim {
namespace {

int Exit(EScenarioExit code) {
  return static_cast<int>(code);
}

void Show(const SScenarioResult& result) {
  std::printf("%s\n", LineOf(result).c_str());
  std::fflush(stdout);
}

int Play(const SOptions& options, const SScenario& scenario, const std::atomic<bool>& stop) {
  CSimulator sim(ConfigOf(options));
  CScenarioRun run(sim, scenario, stop, Show);
  sim.Start();
  ShowCards(sim, options.announce);
  const std::vector<SScenarioResult> results = run.Run(options.strict);
  if (!options.junit.empty()) {
    WriteReport(options.junit, JUnitReport(scenario.name, results));
  }
  const auto failed = std::count_if(results.begin(), results.end(),
                                    [](const SScenarioResult& result) { return result.fault.has_value(); });
  std::printf("%s calls, %s not as expected\n", std::to_string(results.size()).c_str(), std::to_string(failed).c_str());
  return Exit(failed == 0 ? EScenarioExit::kAsExpected : EScenarioExit::kNotAsExpected);
}

}  // namespace

int ShowBuiltIns(const SOptions& options) {
  if (options.print.empty()) {
    for (const SBuiltIn& each : BuiltIns()) {
      std::printf("%-16s %s\n", each.name, each.about);
    }
    return 0;
  }
  const SBuiltIn* const found = FindBuiltIn(options.print);
  if (found == nullptr) {
    std::fprintf(stderr, "zelk-cardsim: there is no scenario %s, see --list\n", options.print.c_str());
    return Exit(EScenarioExit::kBadFile);
  }
  std::printf("%s", found->toml);
  return 0;
}

int PlayScenario(const SOptions& options, const std::atomic<bool>& stop) {
  try {
    return Play(options, ReadScenario(options.scenario), stop);
  } catch (const CScenarioError& error) {
    std::fprintf(stderr, "zelk-cardsim: %s\n", error.what());
    return Exit(EScenarioExit::kBadFile);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-cardsim: %s\n", error.what());
    return Exit(EScenarioExit::kCouldNotRun);
  }
}

}  // namespace cardsim
