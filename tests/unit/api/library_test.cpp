// SPDX-License-Identifier: GPL-2.0-only
#include "api/library.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "call/application_events.h"
#include "call/channel_info.h"
#include "platform/module.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "runtime/log_writer.h"
#include "runtime/paths.h"
#include "support/discovery_responder.h"
#include "support/eventually.h"
#include "support/fake_card.h"

namespace zelk::test {
namespace {

std::atomic<int> channelsUp{0};

void ZELK_CALL CountUp(int32_t, uint32_t event, int32_t param) {
  if (event == EVENT_CHANNEL_STATE && param == 1) {
    ++channelsUp;
  }
}

// Cards at 127.0.0.2 and up; a trunk count of 0 stands for a card that answers the probe and takes no connection.
class WholeLibrary : public ::testing::Test {
 protected:
  void SetUp() override { channelsUp = 0; }
  void TearDown() override {
    library.Shutdown();
    ApplicationEvents().SetEventCallback(nullptr);
    Log().Stop();
  }

  void MakeCards(const std::vector<uint8_t>& trunkCounts, bool playsNetwork = false) {
    std::vector<std::string> addresses;
    for (size_t card = 0; card < trunkCounts.size(); ++card) {
      CFakeCard::SOptions options;
      options.address = "127.0.0." + std::to_string(card + 2);
      options.trunkCount = trunkCounts[card];
      options.serialNumber = static_cast<uint32_t>(1000 + card);
      options.playsNetwork = playsNetwork;
      addresses.push_back(options.address);
      cards.push_back(trunkCounts[card] != 0 ? std::make_unique<CFakeCard>(options) : nullptr);
    }
    responder = std::make_unique<CDiscoveryResponder>(addresses);
    EXPECT_TRUE(responder->IsReady());
  }

  static std::string LogPath() {
    std::string module;
    ModulePath(module);
    return DerivePaths(module, kPathSeparator).log;
  }
  // Other tests' processes write to the same file at the same time: nobody removes it, each reads what is new.
  static std::streamoff LogSize() {
    std::ifstream file(LogPath(), std::ios::ate);
    return file ? static_cast<std::streamoff>(file.tellg()) : 0;
  }
  static std::string LogTextFrom(std::streamoff start) {
    Log().Stop();
    return FileFrom(start);
  }
  static std::string FileFrom(std::streamoff start) {
    std::ifstream file(LogPath(), std::ios::binary);
    file.seekg(start);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  CDevice* Channel(int32_t channel) { return library.Channels().Find(channel); }

  std::vector<std::unique_ptr<CFakeCard>> cards;
  std::unique_ptr<CDiscoveryResponder> responder;
  CLibrary library;
};

TEST_F(WholeLibrary, WithoutACardInitSucceedsWithoutChannels) {
  EXPECT_TRUE(library.Init());
  EXPECT_EQ(library.Channels().Count(), 0);
  EXPECT_EQ(Channel(0), nullptr);
}

TEST_F(WholeLibrary, ShutdownWithoutInitAndTwiceDoesNothing) {
  library.Shutdown();
  EXPECT_TRUE(library.Init());
  library.Shutdown();
  library.Shutdown();
  EXPECT_EQ(library.Channels().Count(), 0);
}

TEST_F(WholeLibrary, CardsTrunksAndTimeslotsMakeTheTable) {
  MakeCards({4, 1});
  ASSERT_TRUE(library.Init());
  ASSERT_EQ(library.Channels().Count(), 150);
  EXPECT_EQ(Channel(0)->Name(), "ZelkBoard (4P 1000) Trunk 1 Chn 1");
  EXPECT_EQ(Channel(15)->Name(), "ZelkBoard (4P 1000) Trunk 1 Chn 17");
  EXPECT_EQ(Channel(119)->Name(), "ZelkBoard (4P 1000) Trunk 4 Chn 31");
  EXPECT_EQ(Channel(120)->Name(), "ZelkBoard (1P 1001) Trunk 1 Chn 1");
  EXPECT_EQ(Channel(120)->CardIndex(), 1);
  EXPECT_EQ(Channel(120)->SerialText(), "1001");
  EXPECT_EQ(Channel(120)->FeatureFlags(), 0xDEADBEEFU);
  EXPECT_EQ(Channel(120)->FirmwareVersion(), 3);
  EXPECT_EQ(Channel(120)->FirmwareDate(), "20241130");
  EXPECT_EQ(Channel(120)->BurnDate(), "13050900");
}

TEST_F(WholeLibrary, EveryTrunksRegisterIsReadBackAtStartUp) {
  MakeCards({3});
  ASSERT_TRUE(library.Init());
  for (uint8_t trunk = 1; trunk <= 3; ++trunk) {
    EXPECT_TRUE(cards[0]->WaitFor({0xFF, 0x02, trunk, 0x06, 0x10, 0xFF})) << int{trunk};
  }
  EXPECT_EQ(cards[0]->Count({0xFF, 0x02}), 3U);
}

TEST_F(WholeLibrary, CardThatDoesNotOpenKeepsItsIndexAndGetsNoChannels) {
  MakeCards({1, 0, 1});
  ASSERT_TRUE(library.Init());
  ASSERT_EQ(library.Channels().Count(), 60);
  EXPECT_EQ(Channel(29)->CardIndex(), 0);
  EXPECT_EQ(Channel(30)->CardIndex(), 2);
}

TEST_F(WholeLibrary, TrunksThatDoNotFitTheTableGetNoChannels) {
  MakeCards({8, 8, 8, 8, 8});
  const std::streamoff start = LogSize();
  ASSERT_TRUE(library.Init());
  EXPECT_EQ(library.Channels().Count(), 1020);
  EXPECT_EQ(Channel(1019)->CardIndex(), 4);
  EXPECT_EQ(Channel(1019)->TrunkIndex(), 1);
  EXPECT_EQ(Channel(1020), nullptr);
  const std::string log = LogTextFrom(start);
  EXPECT_NE(log.find("  G :Card 4: 6 of 8 Trunks have no channels, the channel table is full"), std::string::npos)
      << log;
}

TEST_F(WholeLibrary, SecondInitKeepsChannelsAndReadsTheLevelAgain) {
  MakeCards({1});
  ASSERT_TRUE(library.Init());
  CDevice* first = Channel(0);
  Config().level = 77;
  EXPECT_TRUE(library.Init());
  EXPECT_EQ(Channel(0), first);
  EXPECT_EQ(library.Channels().Count(), 30);
  EXPECT_EQ(Config().level, 2);
  EXPECT_EQ(cards[0]->Connections(), 1);
}

TEST_F(WholeLibrary, ShutdownClosesCardsAndEmptiesTheTable) {
  MakeCards({1});
  ASSERT_TRUE(library.Init());
  Channel(0)->Open();
  library.Shutdown();
  EXPECT_TRUE(cards[0]->WaitDisconnected()) << "the card is open still";
  EXPECT_EQ(library.Channels().Count(), 0);
  EXPECT_EQ(Channel(0), nullptr);
}

TEST_F(WholeLibrary, EveryInitAfterAShutdownReportsTheTrunksThatComeUp) {
  ApplicationEvents().SetEventCallback(&CountUp);
  MakeCards({2}, true);
  for (int round = 1; round <= 3; ++round) {
    channelsUp = 0;
    ASSERT_TRUE(library.Init());
    EXPECT_TRUE(support::Eventually([] { return channelsUp == 60; })) << round << ": " << channelsUp;
    EXPECT_STREQ(GetInfo(*Channel(59), "CHANNELSTATE", 60), "READY");
    library.Shutdown();
  }
}

TEST_F(WholeLibrary, TrunksOfTheSecondCardStandBehindThoseOfTheFirst) {
  MakeCards({2, 1}, true);
  ApplicationEvents().SetEventCallback(&CountUp);
  ASSERT_TRUE(library.Init());
  // Counted as the first trunk of all, or as card number 1, it would bring up other channels or none.
  EXPECT_TRUE(support::Eventually([] { return channelsUp == 90; })) << channelsUp;
  EXPECT_EQ(Channel(60)->Call().View().linkState, 1);
  EXPECT_EQ(Channel(89)->Call().View().linkState, 1);
}

TEST_F(WholeLibrary, LinesAreWrittenAfterAShutdownToo) {
  const std::streamoff start = LogSize();
  ASSERT_TRUE(library.Init());
  library.Shutdown();
  LogLine("after the shut-down", kGeneralLine);
  // Nobody starts or stops the log meanwhile.
  EXPECT_TRUE(
      support::Eventually([&] { return FileFrom(start).find("  G :after the shut-down\r\n") != std::string::npos; }));
}

TEST_F(WholeLibrary, InitAndShutdownOnSeveralThreadsTakeTurns) {
  MakeCards({1});
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([this] {
      EXPECT_TRUE(library.Init());
      library.Shutdown();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(library.Channels().Count(), 0);
}

TEST(LibraryInstance, OneAProcess) {
  EXPECT_EQ(&Library(), &Library());
}

}  // namespace
}  // namespace zelk::test
