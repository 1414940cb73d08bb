// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "bindings/support/function_table.h"
#include "cardsim/card/simulator.h"
#include "support/application.h"
#include "support/eventually.h"
#include "support/zelk_library.h"

// The library from a folder of its own, and simulated cards.
class CBindingTest : public testing::Test {
 protected:
  static constexpr std::chrono::seconds kSoon{20};
  static constexpr std::chrono::seconds kSlow{60};

  // Starts one card and waits, once `startLibrary` has run, until all its channels can be used.
  template <class Start>
  void StartCard(int trunks, Start startLibrary) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({trunks}));
    sim->Start();
    startLibrary();
    ASSERT_TRUE(Card().WaitUp(kSlow)) << zelk.LogText();
    ASSERT_TRUE(support::Eventually([this] { return AllReady(); }, kSlow)) << zelk.LogText();
  }

  bool AllReady() const {
    for (int32_t channel = 0; channel < zelk.GetChannelCount(); ++channel) {
      if (zelk.GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE) != ZELK_CHANNEL_READY) {
        return false;
      }
    }
    return zelk.GetChannelCount() > 0;
  }

  static int32_t TimeslotOf(int32_t channel) {
    const int32_t index = channel % ZELK_CHANNELS_PER_TRUNK;
    return index < 15 ? index + 1 : index + 2;
  }
  static std::string NumberOf(int32_t channel) { return "0305" + std::to_string(1000 + channel); }

  cardsim::Call Offer(int32_t channel) {
    return Card().PlaceCall({.trunk = channel / ZELK_CHANNELS_PER_TRUNK,
                             .timeslot = TimeslotOf(channel),
                             .calling = NumberOf(channel),
                             .called = "8001000"});
  }

  cardsim::CCard& Card() { return sim->Card(0); }

  support::CZelkLibrary zelk;
  std::unique_ptr<cardsim::CSimulator> sim;
};
