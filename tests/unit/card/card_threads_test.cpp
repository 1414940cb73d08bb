// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "card_fixture.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "support/eventually.h"

namespace zelk {
namespace {

TEST_F(Card, HandlersAreTakenAwayAndGivenWhileATrunkIsHeld) {
  FakeNetwork();
  ASSERT_TRUE(Open());
  CRecursiveMutex& lock = card.Trunk(0).lock;
  lock.Lock();
  EXPECT_TRUE(ComesBack(
      [&] {
        card.SetHandlers(&handlers);
        card.SetHandlers(nullptr);
      },
      [&] { lock.Unlock(); }));
}

TEST_F(Card, ClosesWhileTheCardFloodsIt) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  std::atomic<bool> stop{false};
  std::thread flood([&] {
    Message noise;
    for (int i = 0; i < 400; ++i) {
      const Message frame{
          0xFF, 0x10, static_cast<uint8_t>(1 + i % 2), 5, 0, 0x02, 0x01, 0x7F, 0, 0, 0xFF, 0x11, 0, 3, 0xFF, 0x02, 0, 1,
          2,    3};
      noise.insert(noise.end(), frame.begin(), frame.end());
    }
    while (!stop) {
      peer.Send(noise);
      support::LetPass(std::chrono::milliseconds(1));
    }
  });
  EXPECT_TRUE(handlers.WaitFor(Register(0, 0x201, 3), 100));
  const uint32_t start = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - start, 3000U);
  stop = true;
  flood.join();
  const size_t reported = handlers.Seen().size();
  support::LetPass(std::chrono::milliseconds(50));
  EXPECT_EQ(handlers.Seen().size(), reported) << "a closed card still reports";
}

TEST_F(Card, ApplicationThreadsMayUseTheTrunkWhileItIsReopened) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  std::atomic<bool> stop{false};
  std::thread application([&] {
    while (!stop) {
      CTrunk& trunk = card.Trunk(0);
      const CScopedLock<CRecursiveMutex> held(trunk.lock);
      if (trunk.controller != nullptr) {
        const PriCall call = trunk.controller->NewCall();
        trunk.controller->Setup(call, 3, "1", "2", 33);
        trunk.controller->Hangup(call, 16);
      }
      card.SendTrunkConfiguration(0);
    }
  });
  const CStopFlag cancel;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(card.Reopen(peer.Address(), kLocal, cancel));
  }
  stop = true;
  application.join();
}

// A callback that does not return must not hold the shut-down for ever, and its thread ends cleanly later on.
TEST_F(Card, ACallbackThatHangsDoesNotHangTheClose) {
  FakeNetwork();
  CEvent mayReturn;
  CEvent isInside;
  handlers.onDchannelUp = [&](uint32_t trunk) {
    if (trunk == 0) {
      isInside.Set();
      mayReturn.Wait();
    }
  };
  card.SetHandlers(&handlers);
  ASSERT_TRUE(Open());
  isInside.Wait();
  const uint32_t start = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - start, 15000U);
  const uint32_t again = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - again, 2000U) << "a closed card has nothing to wait for";
  mayReturn.Set();
  const auto isReleased = [&] {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(0).lock);
    return card.Trunk(0).controller == nullptr;
  };
  EXPECT_TRUE(support::Eventually(isReleased, std::chrono::seconds(30)));
  handlers.onDchannelUp = nullptr;
  EXPECT_TRUE(Open());
}

}  // namespace
}  // namespace zelk
