// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/finding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
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

// What a test expects: statements with an expectation, the parts of their texts joined.
std::vector<std::string> Expectations() {
  const std::filesystem::path tests = std::filesystem::path(ZELK_DOCS_PATH).parent_path() / "tests";
  std::vector<std::filesystem::path> files = {tests / "system/doctor_test.cpp"};
  for (const auto& each : std::filesystem::directory_iterator(tests / "unit/doctor")) {
    if (each.path().filename() != "finding_test.cpp") {
      files.push_back(each.path());
    }
  }
  std::vector<std::string> expectations;
  for (const std::filesystem::path& path : files) {
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    text = std::regex_replace(text, std::regex("\"\\s*\n\\s*\""), "");
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find(";\n", at), text.size());
      const std::string statement = text.substr(at, end - at);
      if (statement.find("EXPECT") != std::string::npos || statement.find("ExpectSays(") != std::string::npos) {
        expectations.push_back(statement);
      }
      at = end + 1;
    }
  }
  return expectations;
}

// "fault RULE: " and "RULE: " begin what a finding is made to say, "[RULE]" ends a line of the program.
TEST(DoctorFinding, EveryRuleIsExpectedBySomeTestOfWhatIsSaid) {
  const std::vector<std::string> expectations = Expectations();
  ASSERT_GT(expectations.size(), Rules().size());
  for (const SRule& rule : Rules()) {
    const std::string id = rule.id;
    const std::string begins[] = {std::string("\"") + SeverityName(rule.severity) + " " + id + ": ", "\"" + id + ": ",
                                  ". [" + id + "]"};
    EXPECT_TRUE(std::any_of(expectations.begin(), expectations.end(),
                            [&](const std::string& expected) {
                              return std::any_of(std::begin(begins), std::end(begins), [&](const std::string& begin) {
                                return expected.find(begin) != std::string::npos;
                              });
                            }))
        << "no test triggers " << id;
  }
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
