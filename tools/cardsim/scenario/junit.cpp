// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/junit.h"

#include <algorithm>
#include <cstdio>

namespace cardsim {
namespace {

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += code < 0x20 || code > 0x7E ? '?' : c;
    }
  }
  return out;
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", seconds);
  return text;
}

std::string NameOf(const SScenarioResult& result) {
  return result.name + " #" + std::to_string(result.number);
}

std::string Told(const SFault& fault) {
  const std::string where = fault.step == 0 ? fault.text : "step " + std::to_string(fault.step) + ", " + fault.text;
  return where + ": expected " + fault.expected + ", got " + fault.got;
}

}  // namespace

std::string LineOf(const SScenarioResult& result) {
  const std::string name = NameOf(result);
  return result.fault ? "FAILED  " + name + ": " + Told(*result.fault)
                      : "ok      " + name + ", " + Seconds(result.seconds) + " s";
}

std::string JUnitReport(const std::string& scenario, const std::vector<SScenarioResult>& results) {
  const auto failures = std::count_if(results.begin(), results.end(),
                                      [](const SScenarioResult& result) { return result.fault.has_value(); });
  double seconds = 0;
  for (const SScenarioResult& result : results) {
    seconds += result.seconds;
  }
  const std::string suite = Escaped(scenario);
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n<testsuite name=\"" + suite +
                    "\" tests=\"" + std::to_string(results.size()) + "\" failures=\"" + std::to_string(failures) +
                    "\" errors=\"0\" time=\"" + Seconds(seconds) + "\">\n";
  for (const SScenarioResult& result : results) {
    xml += "<testcase classname=\"" + suite + "\" name=\"" + Escaped(NameOf(result)) + "\" time=\"" +
           Seconds(result.seconds) + "\"";
    xml += result.fault ? "><failure message=\"" + Escaped(Told(*result.fault)) + "\"/></testcase>\n" : "/>\n";
  }
  return xml + "</testsuite>\n</testsuites>\n";
}

}  // namespace cardsim
