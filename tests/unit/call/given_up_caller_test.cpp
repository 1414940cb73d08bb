// SPDX-License-Identifier: GPL-2.0-only

// A caller that was held in the application's callback for longer than its card's close waits: what it finds when it
// comes back belongs to another generation.
#include <thread>

#include "call/trunk_status.h"
#include "platform/event.h"
#include "trunk_status_fixture.h"

namespace zelk::test {
namespace {

using GivenUpCaller = CTrunkStatusFixture;

TEST_F(GivenUpCaller, TouchesNothingMore) {
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take(), States(0, 1, 1));
  EXPECT_EQ(View(1).linkState, -1);
}

TEST_F(GivenUpCaller, TakesNoFurtherChannelDown) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnDchannelDown(0, caller);
  EXPECT_EQ(application.Take(), States(0, 1, 0));
  EXPECT_EQ(View(1).linkState, 1);
}

TEST_F(GivenUpCaller, TakesNoFurtherChannelDownWhenACardIsLost) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(7);
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnCardDown(caller);
  EXPECT_EQ(application.Take(), States(0, 1, 0));
  EXPECT_EQ(View(7).linkState, 1);
  EXPECT_NE(View(7).callHandle, nullptr);
}

TEST_F(GivenUpCaller, TakesNoFurtherCallInAReopening) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(7);
  GiveCall(9);
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), States(7, 1, 0));
  EXPECT_NE(View(9).callHandle, nullptr);
}

// The trunk's lock is with a callback that does not return.
class GivenUpOnAHeldTrunk : public CTrunkStatusFixture {
 protected:
  GivenUpOnAHeldTrunk() {
    firstHandlers.OnDchannelUp(0, caller);
    GiveCall(7);
    GiveCall(9);
    application.Take();
    holder = std::thread([this] {
      const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
      isHeld.Set();
      mayGo.Wait();
    });
    isHeld.Wait();
  }
  ~GivenUpOnAHeldTrunk() override {
    mayGo.Set();
    holder.join();
  }

 private:
  CEvent isHeld;
  CEvent mayGo;
  std::thread holder;
};

TEST_F(GivenUpOnAHeldTrunk, AReopeningTakesItsCallsAllTheSame) {
  firstHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), (Posted{{7, EVENT_CHANNEL_STATE, 0}, {9, EVENT_CHANNEL_STATE, 0}}));
  ExpectReset(7);
  ExpectReset(9);
}

TEST_F(GivenUpOnAHeldTrunk, ALostCardsThreadEndsItsWaitWhenItIsGivenUp) {
  std::thread stopper([this] { caller.Set(); });
  firstHandlers.OnCardDown(caller);
  stopper.join();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_NE(View(7).callHandle, nullptr);
}

}  // namespace
}  // namespace zelk::test
