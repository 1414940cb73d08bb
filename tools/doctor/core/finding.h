// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace doctor {

// kMeasured is no complaint: a number that an operator wants to see. kNotSeen: it could not be looked at.
enum class ESeverity { kMeasured, kWarning, kFault, kNotSeen };

struct SFinding {
  const char* rule = "";
  ESeverity severity = ESeverity::kMeasured;
  std::string sentence;
  std::vector<std::string> evidence;  // packets, lines, counters
  const char* advice = "";
  std::string trunk{};  // that it is about alone: "100001-2"; empty: another thing
};
using Findings = std::vector<SFinding>;

// A rule as docs/doctor.md has it: all findings of a rule weigh the same and have the same advice.
struct SRule {
  const char* id;
  ESeverity severity;
  const char* advice;
};
std::span<const SRule> Rules();

// A finding of the rule; of more than ten pieces of evidence the number alone of those that follow. Throws
// std::logic_error for an id that is none.
SFinding Find(const std::string& id, const std::string& sentence, const std::vector<std::string>& evidence = {});
void Append(Findings& findings, Findings&& more);

const char* SeverityName(ESeverity severity);
// What the program exits with: 2 for a fault, else 3 where something could not be looked at, else 1 for a warning.
int ExitCode(const Findings& findings);

// "1 frame", "2 frames".
std::string Counted(std::uint64_t count, const char* thing);

}  // namespace doctor
