#include "call/trunk_status.h"

#include <thread>

#include "call/call_operations.h"
#include "call_fixture.h"
#include "platform/event.h"
#include "support/allocation_probe.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Lines = std::vector<std::string>;

class TrunkStatus : public CCallFixture {
 protected:
  // The channel-state events of these channels, in order.
  static Posted States(int32_t first, int32_t count, int32_t param) {
    Posted states;
    for (int32_t channel = first; channel < first + count; ++channel) {
      states.push_back({channel, EVENT_CHANNEL_STATE, param});
    }
    return states;
  }
  // A channel with everything that a call leaves on it.
  void GiveCall(int32_t channel) {
    CDevice& device = Channel(channel);
    device.callHandle = PriCall(0x10);
    device.connected = true;
    device.direction = 5;
    device.endQueue.Push(1);
    firstCard.Audio().SetEchoSwitch(static_cast<uint32_t>(device.trunkIndex), true);
    const CScopedLock<CMutex> held(device.infoLock);
    device.cli = device.dli = device.rli = "1";
    device.callType = kCallTypeVoice;
    device.lastCause = 99;
  }
  void ExpectReset(int32_t channel) {
    CDevice& device = Channel(channel);
    EXPECT_EQ(device.callHandle, nullptr);
    EXPECT_FALSE(device.connected);
    EXPECT_EQ(device.direction, 5);  // the loss of a trunk leaves it
    EXPECT_FALSE(firstCard.Audio().EchoSwitch(static_cast<uint32_t>(device.trunkIndex)));
    EXPECT_EQ(Info(channel, "CLI") + Info(channel, "DLI") + Info(channel, "RLI") + Info(channel, "CALLTYPE"), "");
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "DOWN");
    uint32_t value = 0;
    EXPECT_FALSE(device.endQueue.Pop(value));
    const CScopedLock<CMutex> held(device.infoLock);
    EXPECT_EQ(device.lastCause, 16);
  }
};

TEST_F(TrunkStatus, TrunkUpSetsItsThirtyChannelsUpOnce) {
  firstHandlers.OnDchannelUp(1, caller);
  EXPECT_EQ(application.Take(), States(30, 30, 1));
  EXPECT_EQ(Info(30, "CHANNELSTATE"), "READY");
  EXPECT_EQ(Info(29, "CHANNELSTATE"), "DOWN");
  firstHandlers.OnDchannelUp(1, caller);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(TrunkStatus, SecondCardsTrunksStandBehindTheFirstOnes) {
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
  Channel(8).linkState = -1;
  GiveCall(8);
  Channel(8).connected = true;
  firstHandlers.OnDchannelDown(0, caller);
  Posted expected = States(0, 8, 0);
  const Posted rest = States(9, 21, 0);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(application.Take(), expected);
  ExpectReset(7);
  EXPECT_TRUE(Channel(8).connected);  // it was down already
  firstHandlers.OnDchannelDown(0, caller);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(TrunkStatus, TrunksWithoutChannelsTouchNoOtherCards) {
  for (const uint32_t trunk : {4U, 7U, 8U, 0x10000U, 0xFFFFFFFFU}) {
    firstHandlers.OnDchannelUp(trunk, caller);
    firstHandlers.OnDchannelDown(trunk, caller);
  }
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(120).linkState, -1);
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
  EXPECT_EQ(Channel(120).linkState, 1);
}

TEST_F(TrunkStatus, CardThatComesUpPostsNothing) {
  firstHandlers.OnCardUp();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(0).linkState, -1);
}

TEST_F(TrunkStatus, ReopeningLosesCallsAndLeavesIdleChannels) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(7);
  PriCall lost = Channel(7).callHandle;
  firstHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), States(7, 1, 0));
  ExpectReset(7);
  EXPECT_EQ(Info(6, "CHANNELSTATE"), "READY");
  EXPECT_FALSE(Channel(7).IsLostCall(lost));  // it went with its controller
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take(), States(7, 1, 1));
}

TEST_F(TrunkStatus, ReopeningForgetsCallsThatWereLostBefore) {
  firstHandlers.OnDchannelUp(0, caller);
  GiveCall(7);
  PriCall lost = Channel(7).callHandle;
  firstHandlers.OnDchannelDown(0, caller);
  ASSERT_TRUE(Channel(7).IsLostCall(lost));
  firstHandlers.OnCardReopening(caller);
  EXPECT_FALSE(Channel(7).IsLostCall(lost));
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

// A caller that was held in the callback for longer than its card's close waits: what it finds when it comes back is
// another opening's.
TEST_F(TrunkStatus, ACallerThatWasGivenUpInTheCallbackTouchesNothingMore) {
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_EQ(application.Take(), States(0, 1, 1));
  EXPECT_EQ(Channel(1).linkState, -1);
}

TEST_F(TrunkStatus, ACallerThatWasGivenUpInTheCallbackTakesNoFurtherChannelDown) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnDchannelDown(0, caller);
  EXPECT_EQ(application.Take(), States(0, 1, 0));
  EXPECT_EQ(Channel(1).linkState, 1);
}

TEST_F(TrunkStatus, ACallerThatWasGivenUpWhenACardWasLostTakesNoFurtherChannelDown) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  application.reaction = [this](const SPosted&) { caller.Set(); };
  GiveCall(7);
  firstHandlers.OnCardDown(caller);
  EXPECT_EQ(application.Take(), States(0, 1, 0));
  EXPECT_EQ(Channel(7).linkState, 1);
  EXPECT_NE(Channel(7).callHandle, nullptr);
}

TEST_F(TrunkStatus, ACallerThatWasGivenUpInAReopeningTakesNoFurtherCall) {
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  GiveCall(7);
  GiveCall(9);
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), States(7, 1, 0));
  EXPECT_NE(Channel(9).callHandle, nullptr);
}

// The trunk's lock is with a callback that does not return.
class TrunkStatusOfAHeldTrunk : public TrunkStatus {
 protected:
  TrunkStatusOfAHeldTrunk() {
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
  ~TrunkStatusOfAHeldTrunk() override {
    mayGo.Set();
    holder.join();
  }

 private:
  CEvent isHeld;
  CEvent mayGo;
  std::thread holder;
};

TEST_F(TrunkStatusOfAHeldTrunk, AReopeningTakesItsCallsAllTheSame) {
  firstHandlers.OnCardReopening(caller);
  EXPECT_EQ(application.Take(), (Posted{{7, EVENT_CHANNEL_STATE, 0}, {9, EVENT_CHANNEL_STATE, 0}}));
  ExpectReset(7);
  ExpectReset(9);
}

TEST_F(TrunkStatusOfAHeldTrunk, ALostCardsThreadEndsItsWaitWhenItIsGivenUp) {
  std::thread stopper([this] { caller.Set(); });
  firstHandlers.OnCardDown(caller);
  stopper.join();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_NE(Channel(7).callHandle, nullptr);
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

// What is lost without memory is a line of the log: every channel follows its trunk.
TEST_F(TrunkStatus, StatesNeedNoMemory) {
  CLogCapture log(2);
  ApplicationEvents().SetEventCallback(&CountStates);
  const auto expectStates = [&](int expected, const std::function<void()>& report) {
    for (uint32_t n = 1; n <= 6; ++n) {
      firstHandlers.OnDchannelUp(0, caller);
      GiveCall(7);
      statesPosted = 0;
      support::FailAllocation(n);
      report();
      support::FailAllocation(0);
      EXPECT_EQ(statesPosted, expected) << n;
      EXPECT_EQ(Channel(7).callHandle, nullptr) << n;
      firstHandlers.OnDchannelDown(0, caller);
    }
  };
  expectStates(30, [this] { firstHandlers.OnDchannelDown(0, caller); });
  expectStates(120, [this] { firstHandlers.OnCardDown(caller); });
  expectStates(1, [this] { firstHandlers.OnCardReopening(caller); });
  statesPosted = 0;
  support::FailAllocation(1);
  firstHandlers.OnDchannelUp(0, caller);
  EXPECT_TRUE(support::AllocationFailed()) << "the line had to be formatted";
  support::FailAllocation(0);
  EXPECT_EQ(statesPosted, 30);
  firstHandlers.OnDchannelDown(0, caller);
  const Lines lines = log.Lines();
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("lost for want of memory") != line.npos;
  })) << "what is lost is counted, and told with the next line";
}

TEST_F(TrunkStatus, StatusLines) {
  CLogCapture log(1);
  secondHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(3, caller);
  firstHandlers.OnLineStatus(0, 1);
  for (uint32_t queue = 0; queue < 3; ++queue) {
    firstHandlers.OnQueueOverflow(1, queue);
  }
  for (const int error : {2, 3, 4, 8, 5}) {
    firstHandlers.OnHdlcError(2, static_cast<uint8_t>(error));
  }
  firstHandlers.OnConfigError(0);
  firstHandlers.OnLinkReset(firstCard, 0, 2);
  secondHandlers.OnRegister(0, 0x1006, 0xA);
  EXPECT_EQ(log.Lines(), (Lines{
                             "  G :Card 4: Trunk 0 - DCHANNEL UP",
                             "  G :Card 0: Trunk 3 - DCHANNEL DOWN",
                             "  G :Card 0: Trunk 1 - Incoming HDLC Queue Overflow Error",
                             "  G :Card 0: Trunk 1 - Outgoing HDLC Queue Overflow Error",
                             "  G :Card 0: Trunk 1 - Unknown HDLC Queue Overflow Error",
                             "  G :Card 0: Trunk 2 - HDLC CRC Error",
                             "  G :Card 0: Trunk 2 - HDLC ABORT Error",
                             "  G :Card 0: Trunk 2 - HDLC OVERRUN Error",
                             "  G :Card 0: Trunk 2 - HDLC Buffer Overflow Error",
                             "  G :Card 0: Trunk 2 - HDLC Unknown Error",
                             "  G :Card 0: Trunk 0 - Configuration Incorrect. Please set ClientType=1 for NT or "
                             "ClientType=2 for TE",
                             "  G :Card 0: Trunk 0 - Link Reset (Too Many HDLC Errors)",
                             "  G :READREG: CardNo=4 LinkNo=0, Reg[0x1006] = 0A ",
                         }));
}

TEST_F(TrunkStatus, RegisterLineBelongsToTheDetailClass) {
  CLogCapture log(2);
  firstHandlers.OnRegister(0, 0x1006, 1);
  firstHandlers.OnConfigError(0);
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(TrunkStatus, NoStatusLineAboveLevel2) {
  CLogCapture log(3);
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnLineStatus(0, 0);
  firstHandlers.OnQueueOverflow(0, 0);
  firstHandlers.OnHdlcError(0, 0);
  firstHandlers.OnConfigError(0);
  firstHandlers.OnLinkReset(firstCard, 0, 0);
  firstHandlers.OnRegister(0, 0, 0);
  firstHandlers.OnCardDown(caller);
  firstHandlers.OnNotice("x");
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(application.Take().size(), 30U + 30U + 120U);
}

TEST_F(TrunkStatus, CardLinesShowTheCardsIndex) {
  CLogCapture log(2);
  secondHandlers.OnCardUp();
  secondHandlers.OnCardDown(caller);
  secondHandlers.OnNotice("Old/Duplicate Packet -> 5, ignored.");
  secondHandlers.OnNotice("%s%n");
  secondHandlers.OnNotice("");
  EXPECT_EQ(log.Lines(),
            (Lines{"  G :Card 1 is up", "  G :Card 1 is down", "  G :Card 1: Old/Duplicate Packet -> 5, ignored.",
                   "  G :Card 1: %s%n", "  G :Card 1: "}));
}

}  // namespace
}  // namespace zelk::test
