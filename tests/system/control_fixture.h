// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "system_fixture.h"

// What tests of the control connection have in common.
class CControlTest : public CSystemTest {
 protected:
  // The line of a register value stands in the log after everything that the card said before it.
  void WaitUntilHeard(uint16_t mark) {
    Card().SendRegisterValue(0, mark, 0xEE);
    char line[40];
    std::snprintf(line, sizeof line, "Reg[0x%04X] = EE ", mark);
    ASSERT_TRUE(app->zelk.WaitLog(line)) << app->zelk.LogText();
  }

  // A whole call in both directions on channel 0.
  void MakeCall() {
    app->Forget();
    ASSERT_TRUE(app->zelk.OpenChannel(0));
    const cardsim::Call call = Card().PlaceCall({.timeslot = 1, .calling = "0305551234", .called = "8001000"});
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    EXPECT_EQ(app->Text(0, ZELK_INFO_CLI), "0305551234");
    app->zelk.Answer(0);
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_CONNECTED, kSoon));
    call->Hangup(16);
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon));
  }

  // The trunk bytes of the configuration messages that came, in order.
  std::vector<int> ConfiguredTrunks() {
    std::vector<int> trunks;
    for (const cardsim::SControlMessage& message : Card().Seen().Messages()) {
      if (message.type == static_cast<uint8_t>(cardsim::EControlType::kTrunkConfiguration)) {
        trunks.push_back(message.bytes[2]);
      }
    }
    return trunks;
  }

  // Starts the library with one card whose answer to the information request is bad or does not come.
  std::chrono::milliseconds TimeInit() {
    app = std::make_unique<support::CApplication>();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(app->zelk.Init());
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
  }

  void MakeSimulator(const std::vector<int>& trunks) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks(trunks));
    sim->Start();
  }
};
