// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/finding.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace doctor {
namespace {

constexpr std::size_t kMostEvidence = 10;

}  // namespace

SFinding Find(const std::string& id, const std::string& sentence, const std::vector<std::string>& evidence) {
  const std::span<const SRule> rules = Rules();
  const auto rule = std::find_if(rules.begin(), rules.end(), [&](const SRule& each) { return each.id == id; });
  if (rule == rules.end()) {
    throw std::logic_error("no rule " + id);
  }
  SFinding finding{rule->id, rule->severity, sentence, evidence, rule->advice};
  if (evidence.size() > kMostEvidence) {
    finding.evidence.resize(kMostEvidence);
    finding.evidence.push_back("and " + std::to_string(evidence.size() - kMostEvidence) + " more");
  }
  return finding;
}

void Append(Findings& findings, Findings&& more) {
  std::move(more.begin(), more.end(), std::back_inserter(findings));
}

const char* SeverityName(ESeverity severity) {
  switch (severity) {
    case ESeverity::kMeasured:
      return "measured";
    case ESeverity::kWarning:
      return "warning";
    case ESeverity::kFault:
      return "fault";
    case ESeverity::kNotSeen:
      break;
  }
  return "not seen";
}

int ExitCode(const Findings& findings) {
  const auto has = [&](ESeverity severity) {
    return std::any_of(findings.begin(), findings.end(), [=](const SFinding& it) { return it.severity == severity; });
  };
  if (has(ESeverity::kFault)) {
    return 2;
  }
  if (has(ESeverity::kNotSeen)) {
    return 3;
  }
  return has(ESeverity::kWarning) ? 1 : 0;
}

std::string Counted(std::uint64_t count, const char* thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

}  // namespace doctor
