// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/program/report.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "trace/core/text.h"
#include "zelk/ZelkApi.h"

namespace doctor {
namespace {

using nlohmann::ordered_json;

constexpr int kSchema = 1;  // raised when readers have to change

Findings WorstFirst(Findings findings) {
  const auto rank = [](ESeverity severity) {
    switch (severity) {
      case ESeverity::kFault:
        return 0;
      case ESeverity::kNotSeen:
        return 1;
      case ESeverity::kWarning:
        return 2;
      case ESeverity::kMeasured:
        break;
    }
    return 3;
  };
  std::stable_sort(findings.begin(), findings.end(), [&](const SFinding& one, const SFinding& other) {
    return rank(one.severity) < rank(other.severity);
  });
  return findings;
}

std::uint64_t Count(const Findings& findings, ESeverity severity) {
  return static_cast<std::uint64_t>(
      std::count_if(findings.begin(), findings.end(), [=](const SFinding& it) { return it.severity == severity; }));
}

std::string Line(const char* type, const ordered_json& fields) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  ordered_json line{{"type", type},
                    {"time", trace::IsoTime(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count())}};
  line.update(fields);
  return line.dump(-1, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string TextReport(const Findings& findings) {
  std::string text;
  for (const SFinding& finding : WorstFirst(findings)) {
    text += std::string(SeverityName(finding.severity)) + ": " + trace::Printable(finding.sentence) + " [" +
            finding.rule + "]\n";
    for (const std::string& each : finding.evidence) {
      text += "    " + trace::Printable(each) + "\n";
    }
    if (finding.advice[0] != 0) {
      text += std::string("    -> ") + finding.advice + "\n";
    }
  }
  const std::uint64_t faults = Count(findings, ESeverity::kFault);
  const std::uint64_t warnings = Count(findings, ESeverity::kWarning);
  const std::uint64_t notSeen = Count(findings, ESeverity::kNotSeen);
  if (ExitCode(findings) == 0) {
    return text + "sound: nothing is wrong with what was looked at\n";
  }
  return text + Counted(faults, "fault") + ", " + Counted(warnings, "warning") + ", " + Counted(notSeen, "thing") +
         " that could not be looked at\n";
}

std::string JsonReport(const Findings& findings) {
  std::string text = Line("hello", {{"schema", kSchema}, {"program", "zelk-doctor"}, {"version", ZELK_VERSION_STRING}});
  for (const SFinding& finding : WorstFirst(findings)) {
    text += Line("finding", {{"rule", finding.rule},
                             {"severity", SeverityName(finding.severity)},
                             {"sentence", finding.sentence},
                             {"evidence", finding.evidence},
                             {"advice", finding.advice}});
  }
  return text + Line("end", {{"code", ExitCode(findings)},
                             {"faults", Count(findings, ESeverity::kFault)},
                             {"warnings", Count(findings, ESeverity::kWarning)},
                             {"notSeen", Count(findings, ESeverity::kNotSeen)}});
}

}  // namespace doctor
