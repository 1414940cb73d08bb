// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/report.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "mini_library.h"
#include "support/eventually.h"

namespace cardsim::test {
namespace {

class Report : public testing::Test {
 protected:
  // One call that the network clears with cause 28, then the end.
  void SetUp() override {
    options.callsPerSecond = 100;
    options.calls = 1;
    options.hold = 50;
    options.cause = 28;
    options.calling =
        "30\xFF"
        "5";  // no UTF-8
    traffic = std::make_unique<CTraffic>(sim, options);
    sim.Start();
    CMiniLibrary library(sim.Card(0).Address());
    library.SetUp();
    ASSERT_TRUE(support::Eventually([this] {
      traffic->Turn(std::chrono::steady_clock::now());
      return traffic->IsDone();
    }));
    status = StatusText(sim, *traffic);
    sim.Stop();
  }

  CSimulator sim{SSimulatorConfig::WithTrunks({1, 2})};
  SOptions options;
  std::unique_ptr<CTraffic> traffic;
  std::string status;
};

TEST_F(Report, JsonHasTheTotalsEachCardAndEachCall) {
  const auto report = nlohmann::json::parse(ReportJson(sim, *traffic, 1.5));
  EXPECT_EQ(report["seconds"], 1.5);
  EXPECT_EQ(report["totals"]["offered"], 1);
  EXPECT_EQ(report["totals"]["connected"], 1);
  EXPECT_EQ(report["totals"]["causes"]["28"], 1);
  ASSERT_EQ(report["cards"].size(), 2U);
  EXPECT_EQ(report["cards"][0]["address"], "127.0.1.1");
  EXPECT_EQ(report["cards"][0]["serial"], 100001);
  EXPECT_EQ(report["cards"][0]["connections"], 1);
  EXPECT_EQ(report["cards"][1]["trunks"], 2);
  EXPECT_EQ(report["cards"][1]["connections"], 0);
  const auto& audio = report["cards"][0]["audio"];
  EXPECT_GT(audio["replies"], 0);
  for (const char* name : {"late", "missing", "wrongSize", "sequenceGaps", "badMagic", "surplus", "lossesSeen"}) {
    EXPECT_EQ(audio[name], 0) << name;
  }
  EXPECT_EQ(report["cards"][0]["network"]["lost"], 0);
  ASSERT_EQ(report["calls"].size(), 1U);
  const auto& call = report["calls"][0];
  EXPECT_EQ(call["card"], 1);
  EXPECT_EQ(call["trunk"], 1);
  EXPECT_EQ(call["timeslot"], 1);
  EXPECT_EQ(call["direction"], "to library");
  EXPECT_EQ(call["cause"], 28);
  EXPECT_EQ(call["clearedBy"], "network");
  EXPECT_TRUE(call["connected"]);
  EXPECT_FALSE(call.contains("file"));
}

TEST_F(Report, SummaryAndStatusAreLinesForAPerson) {
  const std::string summary = SummaryText(sim, *traffic, 1.5);
  EXPECT_NE(summary.find("Summary after 1.5 s\ncard 1 (127.0.1.1, serial 100001, 1 trunks): connections 1\n"),
            std::string::npos)
      << summary;
  EXPECT_NE(summary.find("  calls offered 1, taken 0, connected 1, ended 1; causes: 28: 1\n"), std::string::npos)
      << summary;
  EXPECT_NE(summary.find("  calls offered 0, taken 0, connected 0, ended 0; causes: none\n"), std::string::npos)
      << summary;
  EXPECT_EQ(status.find('\n'), std::string::npos);
  EXPECT_NE(status.find("trunks up 1/3, calls now 0, offered 1, ended 1 (connected 1)"), std::string::npos) << status;
}

TEST_F(Report, IsWrittenWholeOrRefusedByItsName) {
  const auto path = std::filesystem::temp_directory_path() / "zelk-report-test.json";
  WriteReport(path.string(), "{}");
  std::ifstream file(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "{}\n");
  file.close();
  std::filesystem::remove(path);
  EXPECT_THROW(WriteReport("/nonexistent/report.json", "{}"), std::runtime_error);
}

}  // namespace
}  // namespace cardsim::test
