// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "card/control_link.h"
#include "card_fixture.h"
#include "platform/clock.h"
#include "platform/event.h"

namespace zelk {
namespace {

const Message kRegisterRead{0xFF, 0x02, 1, 0x06, 0x10, 0xFF};
constexpr uint8_t kAlarm = 1;
constexpr uint8_t kInService = 0;
constexpr int kSystemHoldsMs = 200;  // a message that nobody lets go

// An application that asks for a register whenever a line comes into service, and stays in its callback for a while.
class CAskingHandlers : public CRecordingHandlers {
 public:
  explicit CAskingHandlers(CCard& askedCard) : card(askedCard) {}

  void OnLineStatus(uint32_t trunk, uint8_t status) override {
    CRecordingHandlers::OnLineStatus(trunk, status);
    if (status == kAlarm) {
      alarmed.Set();
      return;
    }
    card.SendRegisterRead(0, 0x1006);
    asked.Set();
    mayReturn.WaitFor(kPatienceMs);
  }

  static constexpr uint32_t kPatienceMs = 10000;
  CEvent alarmed;
  CEvent asked;
  CEvent mayReturn;

 private:
  CCard& card;
};

// A card that says nothing but what a test has it say.
class BusyCard : public Card {
 protected:
  void SetUp() override {
    if (!CanHoldBack()) {
      GTEST_SKIP() << "this system has no way to hold a stream's messages back";
    }
    CFakeCard::SOptions options;
    options.trunkCount = 1;
    options.keepsTalking = false;
    Fake(options);
    ASSERT_TRUE(Open());
    card.SetHandlers(&asking);
  }
  void TearDown() override { card.Close(); }

  static bool CanHoldBack() {
    CFakeCard::SOptions options;
    options.address = "127.0.0.3";
    const CFakeCard other(options);
    CControlLink link;
    return link.Connect({other.Address(), 5854}, kLocal, nullptr) && link.Socket()->SetHoldsBack(true);
  }

  // Two messages, the second as soon as the first is seen. Tells whether what the application sends in the second one's
  // callback is held back; not so when the machine stood still between the two.
  bool IsHeldBackWhileBusy() {
    bool isHeld = false;
    CEvent done;
    for (CEvent* event : {&asking.alarmed, &asking.asked, &asking.mayReturn}) {
      event->Reset();
    }
    fake->OnCard([&] {
      fake->Write({0xFF, 0x07, kAlarm});
      asking.alarmed.WaitFor(CAskingHandlers::kPatienceMs);
      const size_t waiting = fake->Waiting();
      fake->Write({0xFF, 0x07, kInService});
      asking.asked.WaitFor(CAskingHandlers::kPatienceMs);
      isHeld = !fake->WaitForMore(waiting, kSystemHoldsMs / 4);
      asking.mayReturn.Set();
      done.Set();
    });
    done.WaitFor(CAskingHandlers::kPatienceMs);
    EXPECT_TRUE(fake->WaitFor(kRegisterRead, ++questions));
    return isHeld;
  }

  CAskingHandlers asking{card};
  size_t questions = 0;
};

constexpr int kAttempts = 100;

TEST_F(BusyCard, WhatIsSentToItWaitsUntilItHasBeenRead) {
  int attempts = 1;
  while (!IsHeldBackWhileBusy() && attempts < kAttempts) {
    ++attempts;
  }
  EXPECT_LT(attempts, kAttempts);
}

TEST_F(BusyCard, WhatIsSentAfterwardsGoesAtOnce) {
  constexpr int kMessages = 20;
  int attempts = 1;
  while (!IsHeldBackWhileBusy() && attempts < kAttempts) {
    ++attempts;
  }
  const uint32_t start = TickMs();
  for (int i = 0; i < kMessages; ++i) {
    card.SendRegisterRead(0, 0x1006);
    ASSERT_TRUE(fake->WaitFor(kRegisterRead, ++questions));
  }
  EXPECT_LT(TickMs() - start, static_cast<uint32_t>(kMessages * kSystemHoldsMs / 2));
}

}  // namespace
}  // namespace zelk
