// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/traffic.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "cardsim/audio/wav_file.h"
#include "mini_library.h"
#include "support/eventually.h"

namespace cardsim::test {
namespace {

class Traffic : public testing::Test {
 protected:
  void SetUp() override {
    folder = std::filesystem::temp_directory_path() /
             (std::string("zelk-traffic-") + testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // Runs the program's loop until the condition holds.
  bool TurnUntil(CTraffic& traffic, const std::function<bool()>& condition) {
    return support::Eventually([&] {
      traffic.Turn(std::chrono::steady_clock::now());
      return condition();
    });
  }

  std::filesystem::path folder;
};

TEST_F(Traffic, OffersItsCallsTakesTheirEndsInAndIsDone) {
  CSimulator sim(SSimulatorConfig::WithTrunks({1}));
  SOptions options;
  options.callsPerSecond = 50;
  options.calls = 3;
  options.hold = 200;
  options.cause = 31;
  options.digits = "1";
  options.record = (folder / "heard").string();
  CTraffic traffic(sim, options);
  sim.Start();
  CMiniLibrary library(sim.Card(0).Address());
  library.SetUp();
  EXPECT_FALSE(traffic.IsDone());
  EXPECT_TRUE(traffic.IsInVain());
  ASSERT_TRUE(TurnUntil(traffic, [&] { return traffic.IsDone(); }));
  const SCallTotals sum = traffic.Sum();
  EXPECT_FALSE(traffic.IsInVain());
  EXPECT_EQ(sum.offered, 3U);
  EXPECT_EQ(sum.connected, 3U);
  EXPECT_EQ(sum.ended, 3U);
  EXPECT_EQ(sum.causes, (std::map<int, std::uint64_t>{{31, 3}}));
  ASSERT_EQ(traffic.Records().size(), 3U);
  for (const SCallRecord& record : traffic.Records()) {
    EXPECT_EQ(record.clearedBy, EClearedBy::kNetwork);
    EXPECT_FALSE(record.fromLibrary);
    EXPECT_GE(record.durationMs, 150);
    EXPECT_GE(record.setupMs, 0);
    EXPECT_EQ(ReadWav(record.file).size(), record.recordedBytes);
  }
}

TEST_F(Traffic, NeverMoreCallsThanAllowedAndFinishClearsWhatIsLeft) {
  CSimulator sim(SSimulatorConfig::WithTrunks({1}));
  SOptions options;
  options.callsPerSecond = 100;
  options.concurrent = 2;
  CTraffic traffic(sim, options);
  sim.Start();
  CMiniLibrary library(sim.Card(0).Address());
  library.SetUp();
  ASSERT_TRUE(TurnUntil(traffic, [&] { return traffic.Active() == 2; }));
  for (int turn = 0; turn < 50; ++turn) {
    traffic.Turn(std::chrono::steady_clock::now() + 1s);
    EXPECT_LE(traffic.Active(), 2U);
  }
  traffic.Finish(5s);
  sim.Stop();
  traffic.TakeEnded();
  EXPECT_EQ(traffic.Active(), 0U);
  EXPECT_EQ(traffic.Sum().ended, 2U);
}

TEST_F(Traffic, CallsThatNobodyAnswersAreInVain) {
  CSimulator sim(SSimulatorConfig::WithTrunks({1}));
  SOptions options;
  options.callsPerSecond = 100;
  options.calls = 1;
  CTraffic traffic(sim, options);
  sim.Start();
  CMiniLibrary library(sim.Card(0).Address());
  library.refuseCause = 21;
  library.SetUp();
  ASSERT_TRUE(TurnUntil(traffic, [&] { return traffic.IsDone(); }));
  EXPECT_EQ(traffic.Sum().connected, 0U);
  EXPECT_TRUE(traffic.IsInVain());
  library.Dial(4, "5555");
  const Call call = sim.Card(0).WaitCall(5s);
  ASSERT_NE(call, nullptr);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, 5s));
  traffic.Finish(5s);
  sim.Stop();
  traffic.TakeEnded();
  EXPECT_EQ(traffic.Sum().connected, 1U);
  EXPECT_TRUE(traffic.IsInVain());
}

TEST_F(Traffic, WithoutCallsAskedForNothingIsInVain) {
  CSimulator sim(SSimulatorConfig::WithTrunks({1}));
  EXPECT_FALSE(CTraffic(sim, SOptions{}).IsInVain());
}

TEST_F(Traffic, RefusesCallsOfTheLibraryWithTheCauseAskedFor) {
  CSimulator sim(SSimulatorConfig::WithTrunks({1}));
  SOptions options;
  options.refuse = 17;
  CTraffic traffic(sim, options);
  sim.Start();
  CMiniLibrary library(sim.Card(0).Address());
  library.SetUp();
  ASSERT_TRUE(sim.Card(0).WaitUp(5s));
  library.Dial(4, "5555");
  ASSERT_TRUE(TurnUntil(traffic, [&] { return traffic.Sum().ended == 1; }));
  EXPECT_EQ(traffic.Sum().taken, 1U);
  EXPECT_EQ(traffic.Records()[0].cause, 17);
  EXPECT_TRUE(traffic.Records()[0].fromLibrary);
  EXPECT_FALSE(traffic.Records()[0].connected);
}

TEST_F(Traffic, EveryTimeslotsSoundIsWrittenWhenAskedFor) {
  CSimulator sim(SSimulatorConfig::WithTrunks({2}));
  SOptions options;
  options.recordLines = (folder / "lines").string();
  options.echoDelay = 20;
  CTraffic traffic(sim, options);
  sim.Start();
  CMiniLibrary library(sim.Card(0).Address(), 2);
  library.SetUp();
  const Recorder clock = sim.Card(0).RecordTimeslot(1, 31);
  ASSERT_TRUE(clock->WaitSize(2000, 5s));
  sim.Stop();
  traffic.SaveTimeslots();
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(options.recordLines)) {
    EXPECT_GE(ReadWav(entry.path().string()).size(), 2000U) << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 64U);
}

TEST_F(Traffic, FaultsAndPausesOfTheOptionsReachTheLine) {
  CSimulator sim(SSimulatorConfig::WithTrunks({1}));
  SOptions options;
  options.faults.loss = 50;
  options.pauseEvery = 100;
  options.pauseLength = 100;
  CTraffic traffic(sim, options);
  sim.Start();
  CMiniLibrary library(sim.Card(0).Address());
  library.SetUp();
  ASSERT_TRUE(TurnUntil(traffic, [&] { return sim.Card(0).Audio().FaultCounts().lost > 20; }));
  EXPECT_LT(sim.Card(0).Audio().Statistics().packetsSent, sim.Card(0).Audio().FramesSent() / 45);
}

TEST_F(Traffic, FilesAndDigitsThatCannotBeUsedAreRefusedAtTheStart) {
  SOptions digits;
  digits.digits = "12x";
  CSimulator first(SSimulatorConfig::WithTrunks({1}));
  EXPECT_THROW(CTraffic(first, digits), std::invalid_argument);
  SOptions file;
  file.play = (folder / "none.wav").string();
  CSimulator second(SSimulatorConfig::WithTrunks({1}));
  EXPECT_THROW(CTraffic(second, file), std::runtime_error);
}

}  // namespace
}  // namespace cardsim::test
