// SPDX-License-Identifier: GPL-2.0-only
#include <fmt/format.h>

#include <algorithm>

#include "doctor/core/rules.h"
#include "trace/core/text.h"

namespace doctor {
namespace {

// Of ITU-T Q.850.
constexpr int kUnallocated = 1;
constexpr int kInvalidNumber = 28;
constexpr int kNoCircuit = 34;
constexpr int kChannelNotAvailable = 44;
constexpr int kFirstProtocol = 96;
constexpr int kLastProtocol = 101;
constexpr int kWrongState = 101;
constexpr int kTimerExpired = 102;

constexpr std::uint64_t kFewOfWrongState = 2;  // messages that cross each other
constexpr std::uint64_t kFewUnallocated = 2;

std::string CauseText(int cause) {
  return fmt::format("cause {} {}", cause, trace::CauseName(cause));
}

void AddPlaces(std::vector<std::string>& evidence, int cause, const SCauseFacts& facts) {
  std::string what = CauseText(cause);
  for (const std::string& diagnostics : facts.diagnostics) {
    what += ", diagnostics " + diagnostics;
  }
  for (const std::string& place : PlacesOf(facts.tally, what)) {
    evidence.push_back(place);
  }
}

std::uint64_t Protocol(const Causes& causes, std::vector<std::string>& evidence) {
  std::uint64_t count = 0;
  for (const auto& [cause, facts] : causes) {
    const bool isOne = cause >= kFirstProtocol && cause <= kLastProtocol;
    if (isOne && (cause != kWrongState || facts.tally.count > kFewOfWrongState)) {
      count += facts.tally.count;
      AddPlaces(evidence, cause, facts);
    }
  }
  return count;
}

void CheckDialect(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  std::vector<std::string> evidence;
  const std::uint64_t line = Protocol(trunk.statusFromLine, evidence) + Protocol(trunk.clearedByLine, evidence);
  const std::uint64_t library =
      Protocol(trunk.statusFromLibrary, evidence) + Protocol(trunk.clearedByLibrary, evidence);
  if (line > 0) {
    findings.push_back(Find(
        "wrong-dialect",
        fmt::format("Trunk {}: the exchange does not understand {} of the library.", name, Counted(line, "message")),
        evidence));
  } else if (library > 0) {
    findings.push_back(Find(
        "wrong-dialect",
        fmt::format("Trunk {}: the library does not understand {} of the exchange.", name, Counted(library, "message")),
        evidence));
  }
}

std::uint64_t CountOf(const Causes& causes, int cause) {
  const auto found = causes.find(cause);
  return found == causes.end() ? 0 : found->second.tally.count;
}

void CheckNumbers(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  const std::uint64_t invalid = CountOf(trunk.clearedByLine, kInvalidNumber);
  const std::uint64_t unallocated = CountOf(trunk.clearedByLine, kUnallocated);
  const bool isMany = unallocated > kFewUnallocated && 2 * unallocated >= trunk.callsFromLibrary;
  if (invalid == 0 && !isMany) {
    return;
  }
  std::vector<std::string> evidence;
  for (const int cause : {kUnallocated, kInvalidNumber}) {
    if (CountOf(trunk.clearedByLine, cause) > 0) {
      AddPlaces(evidence, cause, trunk.clearedByLine.at(cause));
    }
  }
  findings.push_back(Find("number-type",
                          fmt::format("Trunk {}: the exchange does not know the numbers of {} of {} dialled.", name,
                                      invalid + unallocated, Counted(trunk.callsFromLibrary, "call")),
                          evidence));
}

void CheckChannels(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  for (const bool isByLine : {true, false}) {
    const Causes& causes = isByLine ? trunk.clearedByLine : trunk.clearedByLibrary;
    const std::uint64_t count = CountOf(causes, kNoCircuit) + CountOf(causes, kChannelNotAvailable);
    std::vector<std::string> evidence;
    for (const int cause : {kNoCircuit, kChannelNotAvailable}) {
      if (CountOf(causes, cause) > 0) {
        AddPlaces(evidence, cause, causes.at(cause));
      }
    }
    if (count > 0) {
      findings.push_back(Find("no-channel",
                              fmt::format("Trunk {}: the {} had no channel for {}.", name,
                                          isByLine ? "exchange" : "library", Counted(count, "call")),
                              evidence));
    }
  }
  if (trunk.glares.count > 0) {
    findings.push_back(Find("glare",
                            fmt::format("Trunk {}: both sides took the same channel at the same time in {}.", name,
                                        Counted(trunk.glares.count, "case")),
                            PlacesOf(trunk.glares, "the second SETUP")));
  }
}

void CheckTimers(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  std::uint64_t count = 0;
  std::vector<std::string> evidence;
  for (const Causes* causes : {&trunk.clearedByLine, &trunk.clearedByLibrary}) {
    if (CountOf(*causes, kTimerExpired) > 0) {
      count += CountOf(*causes, kTimerExpired);
      AddPlaces(evidence, kTimerExpired, causes->at(kTimerExpired));
    }
  }
  if (count > 0) {
    findings.push_back(Find(
        "timer-expired",
        fmt::format("Trunk {}: a side waited in vain for the other's message in {}.", name, Counted(count, "call")),
        evidence));
  }
}

void CheckRestarts(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  for (const auto& [timeslot, most] : trunk.restartStorms) {
    findings.push_back(
        Find("restart-storm",
             fmt::format("Trunk {}: {} restarted {} times in a minute.", name,
                         timeslot < 0 ? "the trunk was" : fmt::format("timeslot {} was", timeslot), most),
             PlacesOf(trunk.restarts, "RESTART")));
  }
}

void CheckHeld(const STrunkFacts& trunk, const std::string& name, Findings& findings) {
  for (const SCallFacts& call : trunk.held) {
    findings.push_back(
        Find("channel-held", fmt::format("Trunk {}: call {} holds timeslot {}, and for {} s no message of it came.",
                                         name, call.number, call.timeslot, call.length / trace::kSecond)));
  }
}

}  // namespace

Findings CallRules(const SWireFacts& wire) {
  Findings findings;
  for (const auto& [address, card] : wire.cards) {
    for (std::size_t i = 0; i < card.trunks.size(); ++i) {
      const STrunkFacts& trunk = card.trunks[i];
      const std::string name = TrunkName(card, i);
      const std::size_t before = findings.size();
      CheckDialect(trunk, name, findings);
      CheckNumbers(trunk, name, findings);
      CheckChannels(trunk, name, findings);
      CheckTimers(trunk, name, findings);
      CheckRestarts(trunk, name, findings);
      CheckHeld(trunk, name, findings);
      std::for_each(findings.begin() + static_cast<std::ptrdiff_t>(before), findings.end(),
                    [&](SFinding& finding) { finding.trunk = name; });
    }
  }
  return findings;
}

Findings DChannelRules(const SWireFacts& file) {
  Findings findings = CallRules(file);
  if (!file.fault.empty()) {
    findings.push_back(Find("capture-cut", file.fault + "."));
  }
  return findings;
}

}  // namespace doctor
