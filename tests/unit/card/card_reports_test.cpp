// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "card_fixture.h"
#include "native_cpu_time.h"
#include "platform/clock.h"
#include "support/eventually.h"

namespace zelk {
namespace {

TEST_F(Card, SendsRegisterReadsAndConfigurations) {
  CFakeCard& peer = Fake();
  ASSERT_TRUE(Open());
  card.SendRegisterRead(1, 0x1006);
  card.SendTrunkConfiguration(UINT32_MAX);
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x02, 2, 0x06, 0x10, 0xFF}));
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x12, 0, 1, 0, 0, 0, 0, 0}));
}

TEST_F(Card, ReportsWhatTheControlStreamSays) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  CFakeCard& peer = Fake(options);
  ASSERT_TRUE(OpenWithHandlers());
  peer.Send({0xFF, 0x07, 0, 1, 0xFF, 0x02, 1, 0x06, 0x10, 0x5A, 0x11, 0, 3});
  EXPECT_TRUE(handlers.WaitFor(LineStatus(0, 0)));
  EXPECT_TRUE(handlers.WaitFor(LineStatus(1, 1)));
  EXPECT_TRUE(handlers.WaitFor(Register(1, 0x1006, 90)));
  EXPECT_TRUE(handlers.WaitFor(HdlcError(0, 3)));
}

TEST_F(Card, TimersRunWhileTheCardIsSilent) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  CFakeCard& peer = Fake(options);
  ASSERT_TRUE(Open());
  // One byte, so that the card counts as lost only some time after layer 2 repeats its unanswered establishment (1 s).
  support::LetPass(std::chrono::milliseconds(500));
  peer.Send({0x00});
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x10, 1, 3, 0, 0x00, 0x01, 0x7F}, 2));
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x10, 2, 3, 0, 0x00, 0x01, 0x7F}, 2));
}

TEST_F(Card, ANewGenerationKnowsNothingOfTheLinesBeforeTheFirstStatus) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  CFakeCard& peer = Fake(options);
  ASSERT_TRUE(OpenWithHandlers());
  peer.Send({0xFF, 0x07, 0, 1});
  ASSERT_TRUE(handlers.WaitFor(LineStatus(0, 0)));
  ASSERT_TRUE(handlers.WaitFor(LineStatus(1, 1)));
  const CStopFlag cancel;
  ASSERT_TRUE(card.Reopen(peer.Address(), kLocal, cancel));
  EXPECT_EQ(card.Trunk(0).lineStatus, 3);
  EXPECT_EQ(card.Trunk(1).lineStatus, 3);
  // An error of a line that may be out of service is not reported, one after its status is.
  peer.Send({0xFF, 0x11, 0, 4, 0xFF, 0x07, 0, 0, 0xFF, 0x11, 0, 3});
  EXPECT_TRUE(handlers.WaitFor(HdlcError(0, 3)));
  EXPECT_EQ(handlers.Count(HdlcError(0, 4)), 0U);
}

TEST_F(Card, ASilentCardIsDownAfterASecondAndOnce) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  Fake(options);
  const uint32_t start = TickMs();
  ASSERT_TRUE(OpenWithHandlers());
  // The first byte of the running card ends the wait that has no limit.
  fake->Send({0x00});
  ASSERT_TRUE(handlers.WaitFor(CardDown()));
  EXPECT_GE(TickMs() - start, 1000U);
  EXPECT_TRUE(card.ControllersRunning());
  EXPECT_FALSE(handlers.WaitFor(CardDown(), 2, 300));
}

TEST_F(Card, AResetConnectionIsDownAfterASecond) {
  Fake();
  ASSERT_TRUE(OpenWithHandlers());
  fake->Send({0xFF, 0x02, 1, 2, 3, 4});
  ASSERT_TRUE(handlers.WaitFor(Register(1, 0x302, 4)));
  fake->ResetPeer();
  EXPECT_TRUE(handlers.WaitFor(CardDown()));
}

TEST_F(Card, APeerThatClosesIsNotReportedAndBurnsNoCpu) {
  Fake();
  ASSERT_TRUE(OpenWithHandlers());
  fake->Send({0xFF, 0x02, 1, 2, 3, 4});
  ASSERT_TRUE(handlers.WaitFor(Register(1, 0x302, 4)));
  fake->ClosePeer();
  const double before = ProcessCpuSeconds();
  EXPECT_FALSE(handlers.WaitFor(CardDown(), 1, 1500));
  EXPECT_LT(ProcessCpuSeconds() - before, 0.5);
  const uint32_t start = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - start, 2500U);
}

TEST_F(Card, TheDchannelComesUpBothWays) {
  FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  AwaitDchannels();
}

TEST_F(Card, ADchannelUpBeforeTheHandlersIsReportedOnceByTheControlThread) {
  FakeNetwork();
  std::atomic<int> onOurThread{0};
  handlers.onDchannelUp = [&, us = std::this_thread::get_id()](uint32_t) {
    onOurThread += std::this_thread::get_id() == us ? 1 : 0;
  };
  ASSERT_TRUE(Open());
  const auto isUp = [&](uint32_t trunk) {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(trunk).lock);
    return card.Trunk(trunk).isDchannelUp;
  };
  ASSERT_TRUE(support::Eventually([&] { return isUp(0) && isUp(1); }));
  card.SetHandlers(&handlers);
  EXPECT_TRUE(handlers.WaitFor(DchannelUp(0)));
  EXPECT_TRUE(handlers.WaitFor(DchannelUp(1)));
  card.Close();
  EXPECT_EQ(handlers.Count(DchannelUp(0)), 1U);
  EXPECT_EQ(handlers.Count(DchannelUp(1)), 1U);
  EXPECT_EQ(onOurThread, 0);
}

}  // namespace
}  // namespace zelk
