// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cardsim/card/simulator.h"
#include "support/application.h"
#include "support/eventually.h"

// An application with simulated cards, started in the order of real life: cards first.
class CSystemTest : public testing::Test {
 protected:
  static constexpr std::chrono::seconds kSoon{10};  // a bound for what happens at once, on a loaded machine
  static constexpr std::chrono::seconds kSlow{30};  // for what waits for a protocol's timers

  // Starts cards with these numbers of trunks, then the library.
  void Start(const std::vector<int>& trunksOfCards, const std::string& ini = {}) {
    Start(cardsim::SSimulatorConfig::WithTrunks(trunksOfCards), ini);
  }

  void Start(const cardsim::SSimulatorConfig& config, const std::string& ini = {}) {
    sim = std::make_unique<cardsim::CSimulator>(config);
    sim->Start();
    app = std::make_unique<support::CApplication>(ini);
    StartLibrary();
  }

  void StartLibrary() {
    ASSERT_TRUE(app->zelk.Init());
    ASSERT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
    ASSERT_TRUE(WaitListener());
  }

  // The library hears announcements: what a card sends before that is lost. One in another process has had its time.
  static bool HasListener() {
    constexpr const char* kAnyAddressPort5854 = " 00000000:16DE ";
    std::ifstream sockets("/proc/self/net/udp");
    const std::string text{std::istreambuf_iterator<char>(sockets), std::istreambuf_iterator<char>()};
    return text.find(kAnyAddressPort5854) != std::string::npos;
  }
  static bool WaitListener() {
    const bool isElsewhere = remote::CRemoteLibrary::Place() != nullptr;
    return isElsewhere || support::Eventually(HasListener, kSoon);
  }

  void OpenAll() {
    for (int32_t channel = 0; channel < app->zelk.GetChannelCount(); ++channel) {
      ASSERT_TRUE(app->zelk.OpenChannel(channel));
    }
  }

  size_t CountInLog(const std::string& text) {
    const std::string log = app->zelk.LogText();
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
      ++count;
    }
    return count;
  }

  cardsim::CCard& Card(size_t index = 0) { return sim->Card(index); }

  // The library goes first: its threads must not meet cards that are being taken down, and its callbacks may use the
  // application to the last.
  void TearDown() override {
    if (app != nullptr && app->zelk.IsLoaded()) {
      app->zelk.Shutdown();
    }
    app.reset();
    sim.reset();
  }

  // Shuts the library down where it goes out of scope: after it stands what the test's callbacks use on its stack.
  class CShutdownAtEnd {
   public:
    explicit CShutdownAtEnd(CSystemTest& systemTest) : test(systemTest) {}
    ~CShutdownAtEnd() { test.app->zelk.Shutdown(); }
    CShutdownAtEnd(const CShutdownAtEnd&) = delete;
    CShutdownAtEnd& operator=(const CShutdownAtEnd&) = delete;

   private:
    CSystemTest& test;
  };

  std::unique_ptr<cardsim::CSimulator> sim;
  std::unique_ptr<support::CApplication> app;
};
