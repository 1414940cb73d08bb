// SPDX-License-Identifier: GPL-2.0-only
#include "stream/pacer_rest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "audio_pacer_fixture.h"
#include "platform/clock.h"
#include "platform/event.h"

namespace zelk {
namespace {

TEST(PacerRest, AMoveSinceTheLookEndsTheSleepBeforeItBegins) {
  CPacerRest rest;
  CStopFlag stop;
  const uint32_t seen = rest.Moves();
  rest.Wake();
  const uint32_t before = TickMs();
  rest.WaitForMove(seen, stop);
  EXPECT_LT(TickMs() - before, CPacerRest::kLongestMs / 2);
}

TEST(PacerRest, NobodySleepsOnceTheThreadIsStopped) {
  CPacerRest rest;
  CStopFlag stop;
  stop.Set();
  const uint32_t before = TickMs();
  rest.WaitForMove(rest.Moves(), stop);
  EXPECT_LT(TickMs() - before, CPacerRest::kLongestMs / 2);
}

TEST(PacerRest, WithoutAMoveItSleepsForItsTime) {
  CPacerRest rest;
  CStopFlag stop;
  const uint32_t before = TickMs();
  rest.WaitForMove(rest.Moves(), stop);
  EXPECT_GE(TickMs() - before, CPacerRest::kLongestMs - 1);
}

// Whatever moment the move comes at, from before the sleeper looks for it to after it sleeps: one that it missed would
// cost it all the time of a rest.
TEST(PacerRest, NoMoveIsMissed) {
  constexpr uint32_t kTurns = 20000;
  constexpr uint32_t kMoments = 128;
  CPacerRest rest;
  CStopFlag stop;
  std::atomic<uint32_t> awake{0};
  uint32_t longestMs = 0;
  std::thread sleeper([&] {
    for (uint32_t turn = 0; turn < kTurns; ++turn) {
      const uint32_t seen = rest.Moves();
      const uint32_t before = TickMs();
      awake = turn + 1;
      rest.WaitForMove(seen, stop);
      longestMs = std::max(longestMs, TickMs() - before);
    }
  });
  std::atomic<uint32_t> idled{0};
  for (uint32_t turn = 1; turn <= kTurns; ++turn) {
    while (awake < turn)
      std::this_thread::yield();
    for (uint32_t i = 0; i < turn % kMoments; ++i)
      idled.fetch_add(1, std::memory_order_relaxed);
    rest.Wake();
  }
  sleeper.join();
  EXPECT_LT(longestMs, CPacerRest::kLongestMs - 100);
}

class RestingPacer : public AudioPacer {
 protected:
  // Everything that the line does in 20 ms at one position: a block comes and one is sent.
  void LineGoesOn(size_t position) {
    const std::vector<uint8_t> silence(160, 0xD5);
    Receive(position, silence.data());
    if (rings.Transmit().NextReady(position))
      rings.Transmit().PushFree(position);
  }
};

TEST_F(RestingPacer, RestsOnlyAfterAPassThatFoundNothing) {
  pacer.Pass(stop);
  EXPECT_FALSE(pacer.IsAtRest());  // it filled the transmit ring
  pacer.Pass(stop);
  EXPECT_TRUE(pacer.IsAtRest());
  LineGoesOn(7);
  pacer.Pass(stop);
  EXPECT_FALSE(pacer.IsAtRest());
}

TEST_F(RestingPacer, DoesNotRestBeforeItHasAHook) {
  controls.hook = nullptr;
  pacer.Pass(stop);
  EXPECT_FALSE(pacer.IsAtRest());
}

// The thread itself: it is asleep for long when the block comes, and serves it in the next pass of its grid.
TEST_F(RestingPacer, AMovedBlockEndsTheRest) {
  class CTelling : public CIdleHook {
   public:
    void OnCall(EMediaCall call) override {
      if (call == EMediaCall::kBlockReceived)
        received.Set();
    }
    CEvent received;
  } telling;
  controls.hook = &telling;
  pacer.Pass(stop);  // the transmit ring is full when the thread starts
  std::thread thread([this] { pacer.Run(stop); });
  for (int turn = 0; turn < 5; ++turn) {
    telling.received.Reset();
    LineGoesOn(3);
    rings.Rest().Wake();
    EXPECT_TRUE(telling.received.WaitFor(CPacerRest::kLongestMs / 2)) << turn;
  }
  stop.Set();
  rings.Rest().Wake();
  thread.join();
}

}  // namespace
}  // namespace zelk
