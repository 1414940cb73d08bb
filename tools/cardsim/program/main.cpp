// SPDX-License-Identifier: GPL-2.0-only

// zelk-cardsim: simulated cards for demonstrations, load and trials without hardware.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>

#include "cardsim/card/simulator.h"
#include "cardsim/exchange/pri_peer.h"
#include "cardsim/program/options.h"
#include "cardsim/program/report.h"
#include "cardsim/program/scenario_command.h"
#include "cardsim/program/traffic.h"
#include "common/terminal.h"

namespace {

using cardsim::CSimulator;
using cardsim::CTraffic;
using cardsim::SOptions;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kTurn{10};
constexpr std::chrono::milliseconds kStatusInterval{500};
constexpr std::chrono::milliseconds kLastWait{2000};
constexpr int kNoCallConnected = 2;  // exit code

std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free);  // a signal sets it

void OnSignal(int) {
  stopAsked = true;
}

// One line that is written over on a terminal, a new line for each change elsewhere.
class CStatusLine {
 public:
  void Show(const std::string& text) {
    if (text == last) {
      return;
    }
    last = text;
    std::printf(terminal ? "\r%s\033[K" : "%s\n", text.c_str());
    std::fflush(stdout);
  }
  void End() const {
    if (terminal) {
      std::printf("\n");
    }
  }

 private:
  const bool terminal = tool::StdoutIsTerminal();
  std::string last;
};

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

void RunUntilEnd(const SOptions& options, CSimulator& sim, CTraffic& traffic) {
  CStatusLine line;
  const auto begin = Clock::now();
  auto nextStatus = begin;
  while (!stopAsked && !traffic.IsDone() && (options.seconds <= 0 || SecondsSince(begin) < options.seconds)) {
    const auto now = Clock::now();
    traffic.Turn(now);
    if (now >= nextStatus) {
      line.Show(cardsim::StatusText(sim, traffic));
      nextStatus = now + kStatusInterval;
    }
    std::this_thread::sleep_until(now + kTurn);
  }
  traffic.Finish(kLastWait);
  line.Show(cardsim::StatusText(sim, traffic));
  line.End();
}

// Every call was connected, and every audio packet answered.
bool IsStrictlyDone(const CSimulator& sim, const CTraffic& traffic) {
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    if (sim.Card(i).Audio().Statistics().missing > 0) {
      return false;
    }
  }
  return std::all_of(traffic.Records().begin(), traffic.Records().end(),
                     [](const cardsim::SCallRecord& call) { return call.connected; });
}

int Run(const SOptions& options) {
  CSimulator sim(cardsim::ConfigOf(options));
  CTraffic traffic(sim, options);
  if (options.verbose) {
    cardsim::CPriPeer::SetLog([](const std::string& text) { std::fprintf(stderr, "libpri: %s", text.c_str()); });
  }
  const auto begin = Clock::now();
  sim.Start();
  cardsim::ShowCards(sim, options.announce);
  RunUntilEnd(options, sim, traffic);
  sim.Stop();
  traffic.TakeEnded();
  traffic.SaveTimeslots();
  const double seconds = SecondsSince(begin);
  std::printf("%s", cardsim::SummaryText(sim, traffic, seconds).c_str());
  if (!options.report.empty()) {
    cardsim::WriteReport(options.report, cardsim::ReportJson(sim, traffic, seconds));
  }
  if (traffic.IsInVain()) {
    std::fprintf(stderr, "zelk-cardsim: none of the calls offered to the library was connected\n");
    return kNoCallConnected;
  }
  if (options.strict && !IsStrictlyDone(sim, traffic)) {
    std::fprintf(stderr, "zelk-cardsim: a call was not connected, or a reply is missing\n");
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const cardsim::SParsed parsed = cardsim::ParseOptions(argc, argv);
  if (!parsed.options) {
    return parsed.exitCode;
  }
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  if (parsed.options->list || !parsed.options->print.empty()) {
    return cardsim::ShowBuiltIns(*parsed.options);
  }
  if (!parsed.options->scenario.empty()) {
    return cardsim::PlayScenario(*parsed.options, stopAsked);
  }
  try {
    return Run(*parsed.options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-cardsim: %s\n", error.what());
    return 1;
  }
}
