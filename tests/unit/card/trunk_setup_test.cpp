// SPDX-License-Identifier: GPL-2.0-only
#include "card/trunk_setup.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "card/card.h"
#include "card/control_thread.h"
#include "platform/module.h"
#include "recording_handlers.h"
#include "runtime/config.h"
#include "runtime/paths.h"
#include "support/addresses.h"
#include "support/allocation_probe.h"
#include "support/eventually.h"
#include "support/fake_card.h"

namespace zelk {
namespace {

// A card opened with an ini file of the test's own. Each test has a serial number of its own too: capture files stand
// beside the test program, where the others run at the same time.
class TrunkSetup : public testing::Test {
 protected:
  void SetUp() override {
    options.serialNumber =
        4711 + static_cast<uint32_t>(
                   std::hash<std::string>()(testing::UnitTest::GetInstance()->current_test_info()->name()) % 1000000);
    const std::string section = "[" + std::to_string(options.serialNumber) + "-";
    ini = (std::filesystem::temp_directory_path() / "zelk-trunk-setup-test.ini").string();
    std::ofstream(ini) << "[General]\nNumberType=65\nSwitchType=4\nCrc4=258\n"
                       << section << "1]\nClientType=1001\nHangupOnAlerting=1\nHdlcLog=1\nEchoCanceller=1\n"
                       << section << "2]\nClientType=3\nCrc4=7\nSwitchType=5\n";
    Config().Read(ini);
    std::string module;
    ASSERT_TRUE(ModulePath(module));
    capturePath = CapturePath(DerivePaths(module, kPathSeparator).directory, kPathSeparator, options.serialNumber, 1);
    std::remove(capturePath.c_str());
  }
  void TearDown() override {
    std::remove(ini.c_str());
    std::remove(capturePath.c_str());
    Config().Read("");
  }
  std::string Capture() const {
    std::ifstream file(capturePath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  CFakeCard::SOptions options;
  std::string ini;
  std::string capturePath;
};

TEST_F(TrunkSetup, EveryTrunkTakesItsSectionAndTheGeneralValues) {
  CFakeCard fake(options);
  CCard card(0);
  ASSERT_TRUE(card.Open(fake.Address(), 5854, Address("127.0.0.1")));
  EXPECT_EQ(card.Trunk(0).nodeType, 10);
  EXPECT_EQ(card.Trunk(0).switchType, 4);
  EXPECT_EQ(card.Trunk(0).numberType, 65);
  EXPECT_TRUE(card.Trunk(0).hangupOnAlerting);
  EXPECT_TRUE(card.Trunk(0).echoEnabled);
  EXPECT_EQ(card.Trunk(1).nodeType, 3);
  EXPECT_EQ(card.Trunk(1).switchType, 5);
  EXPECT_FALSE(card.Trunk(1).hangupOnAlerting);
  EXPECT_FALSE(card.Trunk(1).echoEnabled);
  EXPECT_EQ(card.Trunk(2).nodeType, 2) << "a position without a trunk keeps what the open began with";
}

TEST_F(TrunkSetup, TheConfigurationCarriesEachTrunksCrc4AndTheLastOneStays) {
  CFakeCard fake(options);
  CCard card(0);
  ASSERT_TRUE(card.Open(fake.Address(), 5854, Address("127.0.0.1")));
  EXPECT_TRUE(fake.WaitFor({0xFF, 0x12, 1, 1, 2, 0, 0, 0, 0}));
  EXPECT_TRUE(fake.WaitFor({0xFF, 0x12, 2, 1, 7, 0, 0, 0, 0}));
  card.SendTrunkConfiguration(0);
  EXPECT_TRUE(fake.WaitFor({0xFF, 0x12, 1, 1, 7, 0, 0, 0, 0}));
}

// A trunk that got no controller hears nothing; the others work.
TEST_F(TrunkSetup, ATrunkWhoseControllerCannotBeMadeIsDeafAndTheOthersWork) {
  CCard card(0);
  CRecordingHandlers handlers;
  const auto core = std::make_shared<CCardCore>(card, 0);
  core->handlers = &handlers;
  core->facts.trunkCount = 2;
  core->controllersRunning = true;
  const uint8_t ua[] = {0x00, 0x01, 0x73, 0, 0};  // answers the SABME that every controller begins with
  std::array<size_t, 2> deaf{};
  const auto setUp = [&] {
    try {
      SetUpTrunks(*core, 1);
    } catch (const std::bad_alloc&) {
      return;  // its settings could not be read: the open ends
    }
  };
  support::ForEachFailingAllocation(setUp, [&](bool) {
    CControlThread thread(core, std::make_shared<CSocket>(), 1);
    for (uint32_t trunk = 0; trunk < 2; ++trunk) {
      const SReport up = DchannelUp(trunk);
      const size_t before = handlers.Count(up);
      thread.OnFrame(trunk, ua, sizeof ua);
      const CScopedLock<CRecursiveMutex> held(core->trunks[trunk].lock);
      const bool hasController = core->trunks[trunk].controller != nullptr;
      EXPECT_EQ(handlers.Count(up), before + (hasController ? 1 : 0));
      deaf[trunk] += !hasController && core->trunks[1 - trunk].controller != nullptr ? 1 : 0;
      core->trunks[trunk].controller.reset();
    }
  });
  EXPECT_GT(deaf[0], 0U) << "the second trunk works without the first";
}

size_t Lines(const std::string& text, char direction) {
  size_t count = 0;
  for (size_t at = 0; at < text.size(); at = text.find("\r\n", at) + 2) {
    count += text[at] == direction;
  }
  return count;
}

TEST_F(TrunkSetup, TheCaptureHoldsSentFramesAndReceivedOnesWithAnEvent) {
  std::ofstream(ini) << "[" << options.serialNumber << "-1]\nHdlcLog=1\n";
  options.playsNetwork = true;
  CFakeCard fake(options);
  CCard card(0);
  ASSERT_TRUE(card.Open(fake.Address(), 5854, Address("127.0.0.1")));
  ASSERT_TRUE(fake.WaitForNetworkEvent(kPriDchannelUp, 2));
  ASSERT_TRUE(support::Eventually([&] { return Lines(Capture(), 'I') != 0; }));
  card.Close();
  const std::string text = Capture();
  EXPECT_NE(text.find(" 0000 00 01 7F \r\n"), std::string::npos) << text;
  EXPECT_EQ(Lines(text, 'I'), 1U) << text;
  EXPECT_EQ(Lines(text, 'O'), fake.Count({0xFF, 0x10, 1}));
  {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(0).lock);
    const uint8_t late[] = {0xAB};
    card.Trunk(0).capture.Write('O', late, sizeof late);
  }
  EXPECT_EQ(Capture(), text) << "a closed card's capture is closed";

  ASSERT_TRUE(card.Open(fake.Address(), 5854, Address("127.0.0.1")));
  card.Close();
  EXPECT_EQ(Capture().substr(0, text.size()), text) << "the next open appends";
  EXPECT_GT(Capture().size(), text.size());
}

}  // namespace
}  // namespace zelk
