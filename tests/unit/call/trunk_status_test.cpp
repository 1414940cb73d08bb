// SPDX-License-Identifier: GPL-2.0-only
#include "call/trunk_status.h"

#include <atomic>

#include "call/call_operations.h"
#include "support/allocation_probe.h"
#include "trunk_status_fixture.h"

namespace zelk::test {
namespace {

using TrunkStatus = CTrunkStatusFixture;

TEST_F(TrunkStatus, TrunkUpSetsItsThirtyChannelsUpOnce) {
  firstHandlers.OnDchannelUp(1, caller);
  EXPECT_EQ(application.Take(), States(30, 30, 1));
  EXPECT_EQ(Info(30, "CHANNELSTATE"), "READY");
  EXPECT_EQ(Info(29, "CHANNELSTATE"), "DOWN");
  firstHandlers.OnDchannelUp(1, caller);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(TrunkStatus, SecondCardsTrunksFollowTheFirstOnes) {
  secondHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take(), States(120, 30, 1));
}

TEST_F(TrunkStatus, OnlyChannelsThatAreNotUpGetTheEvent) {
  firstHandlers.OnDchannelUp(0, caller);
  Channel(3).Open();
  Channel(3).Close();
  application.Take();
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take(), States(3, 1, 1));
}

TEST_F(TrunkStatus, TrunkDownResetsWhatWasUpWithoutDisconnected) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(7);
  Channel(8).Open();
  Channel(8).Close();
  GiveCall(8);
  firstHandlers.OnDchannelDown(0, caller);
  Posted expected = States(0, 8, 0);
  const Posted rest = States(9, 21, 0);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(application.Take(), expected);
  ExpectReset(7);
  EXPECT_TRUE(View(8).connected);  // it was down already
  firstHandlers.OnDchannelDown(0, caller);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(TrunkStatus, TrunksWithoutChannelsTouchNoOtherCards) {
  for (const uint32_t trunk : {4U, 7U, 8U, 0x10000U, 0xFFFFFFFFU}) {
    firstHandlers.OnDchannelUp(trunk, caller);
    firstHandlers.OnDchannelDown(trunk, caller);
  }
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(View(120).linkState, -1);
}

TEST_F(TrunkStatus, LostCardTakesEveryChannelOfItDown) {
  firstHandlers.OnDchannelUp(2, caller);
  secondHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(65);
  for (uint32_t trunk = 0; trunk < 5; ++trunk) {
    firstCard.Trunk(trunk).lineStatus = 0;
  }
  firstHandlers.OnCardDown(caller);
  EXPECT_EQ(application.Take(), States(0, 120, 0));
  ExpectReset(65);
  for (uint32_t trunk = 0; trunk < 4; ++trunk) {
    EXPECT_EQ(firstCard.Trunk(trunk).lineStatus, 3) << trunk;
  }
  EXPECT_EQ(firstCard.Trunk(4).lineStatus, 0);  // no channel stands there
  EXPECT_EQ(View(120).linkState, 1);
}

TEST_F(TrunkStatus, CardThatComesUpPostsNothing) {
  firstHandlers.OnCardUp();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(View(0).linkState, -1);
}

TEST_F(TrunkStatus, ReopeningLosesCallsAndLeavesIdleChannels) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(7);
  PriCall lost = View(7).callHandle;
  firstHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), States(7, 1, 0));
  ExpectReset(7);
  EXPECT_EQ(Info(6, "CHANNELSTATE"), "READY");
  EXPECT_FALSE(Channel(7).Call().IsLost(lost));  // it went with its controller
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take(), States(7, 1, 1));
}

TEST_F(TrunkStatus, ReopeningForgetsCallsThatWereLostBefore) {
  firstHandlers.OnDchannelUp(0, caller);
  GiveCall(7);
  PriCall lost = View(7).callHandle;
  firstHandlers.OnDchannelDown(0, caller);
  ASSERT_TRUE(Channel(7).Call().IsLost(lost));
  firstHandlers.OnCardReopening(caller);
  EXPECT_FALSE(Channel(7).Call().IsLost(lost));
}

TEST_F(TrunkStatus, NoChannelLockIsHeldInTheCallback) {
  application.reaction = [this](const SPosted& posted) {
    Info(posted.channel, "CLI");
    Hangup(Channel(posted.channel));
    Dial(Channel(posted.channel), "1", "2");
    Reject(Channel(posted.channel));
    Channel(posted.channel).Open();
  };
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnCardDown(caller);
  EXPECT_EQ(application.Take().size(), 30U + 30U + 120U);
}

TEST_F(TrunkStatus, ChannelsMayGoInsideTheCallback) {
  application.reaction = [this](const SPosted&) { table.Clear(); };
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnCardDown(caller);
  EXPECT_EQ(application.Take(), States(0, 1, 1));
}

std::atomic<int> statesPosted{0};
void ZELK_CALL CountStates(int32_t, uint32_t event, int32_t) {
  statesPosted += event == EVENT_CHANNEL_STATE ? 1 : 0;
}

class TrunkStatusWithoutMemory : public CTrunkStatusFixture {
 protected:
  // Whichever allocation fails while something is reported, all the channels follow.
  void ExpectStates(int expected, const std::function<void()>& report) {
    for (uint32_t n = 1; n <= 6; ++n) {
      firstHandlers.OnDchannelUp(0, caller);
      GiveCall(7);
      statesPosted = 0;
      support::FailAllocation(n);
      report();
      support::FailAllocation(0);
      EXPECT_EQ(statesPosted, expected) << n;
      EXPECT_EQ(View(7).callHandle, nullptr) << n;
      firstHandlers.OnDchannelDown(0, caller);
    }
  }
};

// What is lost without memory is a line of the log: every channel follows its trunk.
TEST_F(TrunkStatusWithoutMemory, StatesNeedNone) {
  CLogCapture log(2);
  ApplicationEvents().SetEventCallback(&CountStates);
  ExpectStates(30, [this] { firstHandlers.OnDchannelDown(0, caller); });
  ExpectStates(120, [this] { firstHandlers.OnCardDown(caller); });
  ExpectStates(1, [this] { firstHandlers.OnCardReopening(caller); });
  statesPosted = 0;
  log.WriteOut();
  support::FailAllocation(1);
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_TRUE(support::AllocationFailed()) << "the line had to be kept";
  support::FailAllocation(0);
  EXPECT_EQ(statesPosted, 30);
  firstHandlers.OnDchannelDown(0, caller);
  const Lines lines = log.Lines();
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("lost for want of memory") != line.npos;
  })) << "what is lost is counted, and told with the next line";
}

}  // namespace
}  // namespace zelk::test
