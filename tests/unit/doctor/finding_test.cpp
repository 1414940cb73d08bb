// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/finding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

namespace doctor {
namespace {

TEST(DoctorFinding, EveryRuleStandsInTheGuideWithItsSeverity) {
  std::ifstream file(ZELK_DOCS_PATH "/doctor.md");
  const std::string guide{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::set<std::string> ids;
  for (const SRule& rule : Rules()) {
    const std::string row = std::string("| `") + rule.id + "` | " + SeverityName(rule.severity) + " |";
    EXPECT_NE(guide.find(row), std::string::npos) << row;
    EXPECT_TRUE(ids.insert(rule.id).second) << rule.id;
  }
  std::size_t rows = 0;
  for (std::size_t at = guide.find("\n| `"); at != std::string::npos; at = guide.find("\n| `", at + 1)) {
    const std::string row = guide.substr(at + 4, guide.find('`', at + 4) - at - 4);
    rows += ids.count(row);
  }
  EXPECT_EQ(rows, ids.size());
}

TEST(DoctorFinding, TheWorstDecidesTheExitCode) {
  Findings findings;
  EXPECT_EQ(ExitCode(findings), 0);
  findings.push_back(Find("port-held", "measured"));
  EXPECT_EQ(ExitCode(findings), 0);
  findings.push_back(Find("glare", "a warning"));
  EXPECT_EQ(ExitCode(findings), 1);
  findings.push_back(Find("ini-unreadable", "not seen"));
  EXPECT_EQ(ExitCode(findings), 3);
  findings.push_back(Find("layer1-out", "a fault"));
  EXPECT_EQ(ExitCode(findings), 2);
}

TEST(DoctorFinding, EvidenceIsNoFlood) {
  const SFinding finding = Find("glare", "s", std::vector<std::string>(14, "packet"));
  ASSERT_EQ(finding.evidence.size(), 11U);
  EXPECT_EQ(finding.evidence.back(), "and 4 more");
  EXPECT_THROW(Find("no-such-rule", "s"), std::logic_error);
}

}  // namespace
}  // namespace doctor
