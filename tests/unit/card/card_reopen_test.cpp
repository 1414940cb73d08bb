// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <thread>

#include "card_fixture.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

// In a re-open nothing is held while the application is told: the card can be closed meanwhile, and the re-open does
// not touch it any more.
TEST_F(Card, CanBeClosedWhileAReopenTellsTheHandlers) {
  FakeNetwork();
  CStopFlag caller;
  handlers.SetOnReopening([&](const CStopFlag& told) {
    EXPECT_EQ(&told, &caller);
    CEvent mayReturn;
    EXPECT_TRUE(ComesBack([&] { card.Close(); }, [] {}));
    caller.Set();
  });
  ASSERT_TRUE(OpenWithHandlers());
  EXPECT_FALSE(card.Reopen(fake->Address(), kLocal, caller));
  EXPECT_FALSE(card.ControllersRunning());
  EXPECT_EQ(fake->Connections(), 1);
  handlers.SetOnReopening(nullptr);
  EXPECT_TRUE(Open());
}

TEST_F(Card, AReopenWithoutMemoryFailsAndKeepsTheSerialNumber) {
  CFakeCard::SOptions options;
  options.trunkCount = 1;
  Fake(options);
  ASSERT_TRUE(OpenWithHandlers());
  const CStopFlag caller;
  bool isOpen = false;
  support::ForEachFailingAllocation([&] { isOpen = card.Reopen(fake->Address(), kLocal, caller); },
                                    [&](bool failed) {
                                      EXPECT_TRUE(isOpen || failed);
                                      EXPECT_EQ(card.ControllersRunning(), isOpen);
                                      EXPECT_EQ(card.SerialNumber(), 4711U);
                                    });
  EXPECT_TRUE(card.ControllersRunning());
}

TEST_F(Card, AReopenTellsTheHandlersAndTheControllersAreGoneByThen) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  ASSERT_TRUE(handlers.WaitFor(DchannelUp(0)));
  ASSERT_TRUE(handlers.WaitFor(DchannelUp(1)));
  const CStopFlag cancel;
  ASSERT_TRUE(card.Reopen(peer.Address(), kLocal, cancel));
  EXPECT_EQ(handlers.Count(Reopening()), 1U);
  EXPECT_EQ(handlers.Count(CardUp()), 1U);
  EXPECT_TRUE(handlers.WaitFor(DchannelUp(0), 2));
  EXPECT_EQ(peer.Connections(), 2);
}

TEST_F(Card, AFailedReopenKeepsTheSerialNumber) {
  Fake();
  ASSERT_TRUE(OpenWithHandlers());
  const CStopFlag cancel;
  EXPECT_FALSE(card.Reopen(Address("127.0.0.77"), kLocal, cancel));
  EXPECT_EQ(card.SerialNumber(), 4711U);
  EXPECT_FALSE(card.ControllersRunning());
  EXPECT_TRUE(card.Reopen(fake->Address(), kLocal, cancel));
  EXPECT_EQ(handlers.Count(Reopening()), 2U) << "a channel may have a call of before still";
}

TEST_F(Card, ACancelledReopenEndsEarly) {
  CFakeCard::SOptions options;
  options.answersInformation = false;
  Fake(options);
  CStopFlag cancel;
  std::thread canceller([&] {
    EXPECT_TRUE(fake->WaitFor({0xFF, 0x01}));
    cancel.Set();
  });
  const uint32_t start = TickMs();
  EXPECT_FALSE(card.Reopen(fake->Address(), kLocal, cancel));
  EXPECT_LT(TickMs() - start, 900U);
  canceller.join();
  EXPECT_FALSE(card.Reopen(fake->Address(), kLocal, cancel));
  EXPECT_EQ(fake->Connections(), 1) << "nothing is opened after the cancellation";
}

}  // namespace
}  // namespace zelk
