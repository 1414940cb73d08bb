// SPDX-License-Identifier: GPL-2.0-only

// Runs worlds.
//   world --seed N        one, with its plan, and where it fails its events and the library's log
//   world --seeds A-B     those, until one fails
//   world --minutes M [--from A]   from a seed on (1), for so long
//   world --shrink N      what of a failing seed's plan it fails without is left out
//   world --file F        those of a file, one at the beginning of a line
//   --calls N             so many calls on trunks on which nothing goes wrong, 50,000 a world
//   --wire F              beside --seed: what passes the library's adapter but the sound, as pcapng; --whole-wire F:
//   all
//   --jobs J              beside any of the last four: in so many processes (1)
//   --failures F          goes on until so many seeds have failed in one of the processes (1); with more than one, only
//                         what failed is printed
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "world/crew.h"
#include "world/many_calls.h"
#include "world/run.h"
#include "world/shrink.h"

namespace {

using world::SRunResult;
using world::SWorldPlan;

using Clock = std::chrono::steady_clock;

constexpr uint64_t kCallsOfAWorld = 50'000;

struct SOptions {
  uint64_t first = 1;
  uint64_t last = UINT64_MAX;
  double minutes = 0;
  std::vector<uint64_t> kept;
  bool isVerbose = false;
  bool shrinks = false;
  bool isCalls = false;  // the seeds are those of worlds of many calls
  size_t jobs = 1;
  uint64_t mostFailures = 1;
  world::SWireFile wire;
};

std::vector<uint64_t> ReadSeeds(const std::string& path) {
  std::ifstream file(path);
  std::vector<uint64_t> seeds;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] >= '0' && line[0] <= '9') {
      seeds.push_back(std::stoull(line));
    }
  }
  return seeds;
}

bool Parse(int argc, char** argv, SOptions& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i];
    const std::string value = argv[i + 1];
    if (name == "--seed" || name == "--shrink") {
      options.first = options.last = std::stoull(value);
      options.isVerbose = true;
      options.shrinks = name == "--shrink";
    } else if (name == "--seeds") {
      const size_t dash = value.find('-');
      options.first = std::stoull(value);
      options.last = dash == std::string::npos ? options.first : std::stoull(value.substr(dash + 1));
    } else if (name == "--from") {
      options.first = std::stoull(value);
    } else if (name == "--file") {
      options.kept = ReadSeeds(value);
      options.last = options.first + options.kept.size() - 1;
    } else if (name == "--minutes") {
      options.minutes = std::stod(value);
    } else if (name == "--calls") {
      options.isCalls = true;
      options.last = (std::stoull(value) + kCallsOfAWorld - 1) / kCallsOfAWorld;
    } else if (name == "--wire" || name == "--whole-wire") {
      options.wire = {value, name == "--whole-wire"};
    } else if (name == "--jobs") {
      options.jobs = std::stoul(value);
    } else if (name == "--failures") {
      options.mostFailures = std::stoull(value);
    } else {
      return false;
    }
  }
  const bool isOneSeed = options.isVerbose && !options.shrinks;
  if (!options.wire.path.empty() && !isOneSeed) {
    return false;
  }
  return options.jobs > 0 && argc > 1 && argc % 2 == 1 && (options.minutes > 0 || options.last != UINT64_MAX);
}

void PrintFailures(uint64_t seed, const SRunResult& result) {
  if (!result.failures.empty()) {
    std::printf("seed %llu failed:\n", static_cast<unsigned long long>(seed));
  }
  for (const std::string& failure : result.failures) {
    std::printf("  %s\n", failure.c_str());
  }
}

void PrintFailure(const SWorldPlan& plan, const SRunResult& result) {
  std::printf("%s\n", ToText(plan).c_str());
  std::printf("log:\n%s\nevents:\n%s\n", result.log.c_str(), result.eventText.c_str());
  PrintFailures(plan.seed, result);
}

struct STotals {
  uint64_t seeds = 0;
  uint64_t faults = 0;
  uint64_t calls = 0;
  uint64_t compared = 0;
  double hours = 0;
  int64_t grownBytes = 0;

  void Add(const STotals& others) {
    seeds += others.seeds;
    faults += others.faults;
    calls += others.calls;
    compared += others.compared;
    hours += others.hours;
    grownBytes = std::max(grownBytes, others.grownBytes);
  }
};

double SecondsSince(Clock::time_point began) {
  return std::chrono::duration<double>(Clock::now() - began).count();
}

void PrintTotals(const STotals& totals, double seconds, bool isCalls) {
  if (isCalls) {
    std::printf("%llu calls in %.1f s, %.1f virtual hours; memory grew by %lld bytes at most\n",
                static_cast<unsigned long long>(totals.calls), seconds, totals.hours,
                static_cast<long long>(totals.grownBytes));
    return;
  }
  std::printf("%llu seeds in %.1f s: %.2f a second, %.1f virtual hours a minute, %llu faults, %llu calls, %llu heard\n",
              static_cast<unsigned long long>(totals.seeds), seconds, static_cast<double>(totals.seeds) / seconds,
              totals.hours / (seconds / 60), static_cast<unsigned long long>(totals.faults),
              static_cast<unsigned long long>(totals.calls), static_cast<unsigned long long>(totals.compared));
}

bool RunCalls(uint64_t seed, STotals& totals) {
  const SRunResult result = world::RunApart([seed] { return world::RunManyCalls(seed, kCallsOfAWorld); });
  ++totals.seeds;
  totals.calls += result.calls;
  totals.hours += static_cast<double>(result.virtualMs) / 3'600'000;
  totals.grownBytes = std::max(totals.grownBytes, result.grownBytes);
  PrintFailures(seed, result);
  return result.failures.empty();
}

bool RunSeed(uint64_t seed, const SOptions& options, STotals& totals) {
  const SWorldPlan plan = world::DrawPlan(seed);
  const SRunResult result = world::RunWorldApart(plan, options.wire);
  ++totals.seeds;
  totals.faults += plan.faults.size();
  totals.calls += result.calls;
  totals.compared += result.comparedCalls;
  totals.hours += static_cast<double>(result.virtualMs) / 3'600'000;
  if (!result.failures.empty() && options.mostFailures > 1) {
    PrintFailures(seed, result);
    std::fflush(stdout);
  } else if (!result.failures.empty()) {
    PrintFailure(plan, result);
  } else if (options.isVerbose) {
    std::printf("%s\nhash %llx, %llu steps, %llu events\n", ToText(plan).c_str(),
                static_cast<unsigned long long>(result.hash), static_cast<unsigned long long>(result.steps),
                static_cast<unsigned long long>(result.events));
  }
  return result.failures.empty();
}

// What a failure is about, without its time and numbers.
std::string KindOf(const std::string& failure) {
  std::string kind;
  for (const char letter : failure.substr(0, failure.find('\n'))) {
    kind += letter < '0' || letter > '9' ? std::string(1, letter) : "";
  }
  return kind;
}

// True where there was nothing to shrink.
bool ShrinkSeed(uint64_t seed) {
  const SWorldPlan whole = world::DrawPlan(seed);
  const SRunResult result = world::RunWorldApart(whole);
  if (result.failures.empty()) {
    return true;
  }
  const std::string kind = KindOf(result.failures.front());
  const SWorldPlan small = world::Shrink(whole, [&kind](const SWorldPlan& plan) {
    const SRunResult tried = world::RunWorldApart(plan);
    return !tried.failures.empty() && KindOf(tried.failures.front()) == kind;
  });
  PrintFailure(small, world::RunWorldApart(small));
  return false;
}

// One process's share of the seeds. False when one of them failed.
bool RunShare(const SOptions& options, size_t worker, world::ICrewStop& stop, STotals& totals) {
  const auto began = Clock::now();
  uint64_t failures = 0;
  for (uint64_t seed = options.first + worker; !stop.IsSet() && seed <= options.last; seed += options.jobs) {
    if (options.minutes > 0 && SecondsSince(began) > options.minutes * 60) {
      break;
    }
    const bool isRight =
        options.isCalls ? RunCalls(seed, totals)
                        : RunSeed(options.kept.empty() ? seed : options.kept[seed - options.first], options, totals);
    failures += isRight ? 0 : 1;
    if (failures >= std::max<uint64_t>(options.mostFailures, 1)) {
      stop.Set();
      return false;
    }
  }
  return failures == 0;
}

bool RunSeeds(const SOptions& options) {
  const auto began = Clock::now();
  const auto shares = world::RunCrew(options.jobs, [&](size_t worker, world::ICrewStop& stop) {
    STotals own;
    const bool isRight = RunShare(options, worker, stop, own);
    std::ostringstream text;
    text << isRight << ' ' << own.seeds << ' ' << own.faults << ' ' << own.calls << ' ' << own.compared << ' '
         << own.hours << ' ' << own.grownBytes;
    return text.str();
  });
  STotals totals;
  bool areRight = true;
  for (const std::string& share : shares) {
    std::istringstream text(share);
    STotals own;
    bool isRight = false;
    text >> isRight >> own.seeds >> own.faults >> own.calls >> own.compared >> own.hours >> own.grownBytes;
    areRight = areRight && isRight;
    totals.Add(own);
  }
  PrintTotals(totals, SecondsSince(began), options.isCalls);
  return areRight;
}

}  // namespace

int main(int argc, char** argv) {
  SOptions options;
  if (!Parse(argc, argv, options)) {
    std::fprintf(stderr,
                 "world --seed N [--wire F | --whole-wire F] | --shrink N | --seeds A-B | --minutes M [--from A] | "
                 "--file F | --calls N, [--jobs J] [--failures F]\n");
    return 2;
  }
  return (options.shrinks ? ShrinkSeed(options.first) : RunSeeds(options)) ? 0 : 1;
}
