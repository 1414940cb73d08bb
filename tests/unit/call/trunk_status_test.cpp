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
  void Status(uint32_t trunk, ETrunkStatus code, uint16_t value16 = 0, uint32_t value32 = 0) {
    firstHandlers.OnTrunkStatus(firstCard, trunk, code, value16, value32, caller);
  }
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
  Status(1, kDchannelUp);
  EXPECT_EQ(application.Take(), States(30, 30, 1));
  EXPECT_EQ(Info(30, "CHANNELSTATE"), "READY");
  EXPECT_EQ(Info(29, "CHANNELSTATE"), "DOWN");
  Status(1, kDchannelUp);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(TrunkStatus, SecondCardsTrunksStandBehindTheFirstOnes) {
  secondHandlers.OnTrunkStatus(secondCard, 0, kDchannelUp, 0, 0, caller);
  EXPECT_EQ(application.Take(), States(120, 30, 1));
}

TEST_F(TrunkStatus, OnlyChannelsThatAreNotUpGetTheEvent) {
  Status(0, kDchannelUp);
  Channel(3).Open();
  Channel(3).Close();
  application.Take();
  Status(0, kDchannelUp);
  EXPECT_EQ(application.Take(), States(3, 1, 1));
}

TEST_F(TrunkStatus, TrunkDownResetsWhatWasUpWithoutDisconnected) {
  Status(0, kDchannelUp);
  application.Take();
  GiveCall(7);
  Channel(8).linkState = -1;
  GiveCall(8);
  Channel(8).connected = true;
  Status(0, kDchannelDown);
  Posted expected = States(0, 8, 0);
  const Posted rest = States(9, 21, 0);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(application.Take(), expected);
  ExpectReset(7);
  EXPECT_TRUE(Channel(8).connected);  // it was down already
  Status(0, kDchannelDown);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(TrunkStatus, TrunksWithoutChannelsTouchNoOtherCards) {
  for (const uint32_t trunk : {4U, 7U, 8U, 0x10000U, 0xFFFFFFFFU}) {
    Status(trunk, kDchannelUp);
    Status(trunk, kDchannelDown);
  }
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(120).linkState, -1);
}

TEST_F(TrunkStatus, LostCardTakesEveryChannelOfItDown) {
  Status(2, kDchannelUp);
  secondHandlers.OnTrunkStatus(secondCard, 0, kDchannelUp, 0, 0, caller);
  application.Take();
  GiveCall(65);
  for (uint32_t trunk = 0; trunk < 5; ++trunk) {
    firstCard.Trunk(trunk).lineStatus = 0;
  }
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller);
  EXPECT_EQ(application.Take(), States(0, 120, 0));
  ExpectReset(65);
  for (uint32_t trunk = 0; trunk < 4; ++trunk) {
    EXPECT_EQ(firstCard.Trunk(trunk).lineStatus, 3) << trunk;
  }
  EXPECT_EQ(firstCard.Trunk(4).lineStatus, 0);  // no channel stands there
  EXPECT_EQ(Channel(120).linkState, 1);
}

TEST_F(TrunkStatus, CardThatComesUpPostsNothing) {
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 1, caller);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Channel(0).linkState, -1);
}

TEST_F(TrunkStatus, ReopeningLosesCallsAndLeavesIdleChannels) {
  Status(0, kDchannelUp);
  application.Take();
  GiveCall(7);
  PriCall lost = Channel(7).callHandle;
  firstHandlers.OnCardReopening(firstCard, caller);
  EXPECT_EQ(application.Take(), States(7, 1, 0));
  ExpectReset(7);
  EXPECT_EQ(Info(6, "CHANNELSTATE"), "READY");
  EXPECT_FALSE(Channel(7).IsLostCall(lost));  // it went with its controller
  Status(0, kDchannelUp);
  EXPECT_EQ(application.Take(), States(7, 1, 1));
}

TEST_F(TrunkStatus, ReopeningForgetsCallsThatWereLostBefore) {
  Status(0, kDchannelUp);
  GiveCall(7);
  PriCall lost = Channel(7).callHandle;
  Status(0, kDchannelDown);
  ASSERT_TRUE(Channel(7).IsLostCall(lost));
  firstHandlers.OnCardReopening(firstCard, caller);
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
  Status(0, kDchannelUp);
  Status(0, kDchannelDown);
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller);
  EXPECT_EQ(application.Take().size(), 30U + 30U + 120U);
}

// A caller that was held in the callback for longer than its card's close waits: what it finds when it comes back is
// another opening's.
TEST_F(TrunkStatus, ACallerThatWasGivenUpInTheCallbackTouchesNothingMore) {
  application.reaction = [this](const SPosted&) { caller.Set(); };
  Status(0, kDchannelUp);
  EXPECT_EQ(application.Take(), States(0, 1, 1));
  EXPECT_EQ(Channel(1).linkState, -1);
}

TEST_F(TrunkStatus, ACallerThatWasGivenUpInTheCallbackTakesNoFurtherChannelDown) {
  Status(0, kDchannelUp);
  application.Take();
  application.reaction = [this](const SPosted&) { caller.Set(); };
  Status(0, kDchannelDown);
  EXPECT_EQ(application.Take(), States(0, 1, 0));
  EXPECT_EQ(Channel(1).linkState, 1);
}

TEST_F(TrunkStatus, ACallerThatWasGivenUpWhenACardWasLostTakesNoFurtherChannelDown) {
  Status(0, kDchannelUp);
  application.Take();
  application.reaction = [this](const SPosted&) { caller.Set(); };
  GiveCall(7);
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller);
  EXPECT_EQ(application.Take(), States(0, 1, 0));
  EXPECT_EQ(Channel(7).linkState, 1);
  EXPECT_NE(Channel(7).callHandle, nullptr);
}

TEST_F(TrunkStatus, ACallerThatWasGivenUpInAReopeningTakesNoFurtherCall) {
  Status(0, kDchannelUp);
  application.Take();
  GiveCall(7);
  GiveCall(9);
  application.reaction = [this](const SPosted&) { caller.Set(); };
  firstHandlers.OnCardReopening(firstCard, caller);
  EXPECT_EQ(application.Take(), States(7, 1, 0));
  EXPECT_NE(Channel(9).callHandle, nullptr);
}

// The trunk's lock is with a callback that does not return.
class TrunkStatusOfAHeldTrunk : public TrunkStatus {
 protected:
  TrunkStatusOfAHeldTrunk() {
    Status(0, kDchannelUp);
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
  firstHandlers.OnCardReopening(firstCard, caller);
  EXPECT_EQ(application.Take(), (Posted{{7, EVENT_CHANNEL_STATE, 0}, {9, EVENT_CHANNEL_STATE, 0}}));
  ExpectReset(7);
  ExpectReset(9);
}

TEST_F(TrunkStatusOfAHeldTrunk, ALostCardsThreadEndsItsWaitWhenItIsGivenUp) {
  std::thread stopper([this] { caller.Set(); });
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller);
  stopper.join();
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_NE(Channel(7).callHandle, nullptr);
}

TEST_F(TrunkStatus, ChannelsMayGoInsideTheCallback) {
  application.reaction = [this](const SPosted&) { table.Clear(); };
  Status(0, kDchannelUp);
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller);
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
      Status(0, kDchannelUp);
      GiveCall(7);
      statesPosted = 0;
      support::FailAllocation(n);
      report();
      support::FailAllocation(0);
      EXPECT_EQ(statesPosted, expected) << n;
      EXPECT_EQ(Channel(7).callHandle, nullptr) << n;
      Status(0, kDchannelDown);
    }
  };
  expectStates(30, [this] { Status(0, kDchannelDown); });
  expectStates(120, [this] { firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller); });
  expectStates(1, [this] { firstHandlers.OnCardReopening(firstCard, caller); });
  statesPosted = 0;
  support::FailAllocation(1);
  Status(0, kDchannelUp);
  EXPECT_TRUE(support::AllocationFailed()) << "the line had to be formatted";
  support::FailAllocation(0);
  EXPECT_EQ(statesPosted, 30);
  Status(0, kDchannelDown);
  const Lines lines = log.Lines();
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("lost for want of memory") != line.npos;
  })) << "what is lost is counted, and told with the next line";
}

TEST_F(TrunkStatus, StatusLines) {
  CLogCapture log(1);
  secondHandlers.OnTrunkStatus(secondCard, 0, kDchannelUp, 0, 0, caller);
  Status(3, kDchannelDown);
  Status(0, kStatusReserved);
  Status(0, kLineStatus, 0, 1);
  for (uint32_t direction = 0; direction < 3; ++direction) {
    Status(1, kQueueOverflow, 0, direction);
  }
  for (const uint32_t error : {2U, 3U, 4U, 8U, 5U}) {
    Status(2, kHdlcError, 0, error);
  }
  Status(0, kConfigError);
  Status(0, kLinkReset, 0, 2);
  secondHandlers.OnTrunkStatus(secondCard, 0, kRegisterRead, 0x1006, 0xA, caller);
  Status(0, static_cast<ETrunkStatus>(266));
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
  Status(0, kRegisterRead, 0x1006, 1);
  Status(0, kConfigError);
  EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(TrunkStatus, NoStatusLineAboveLevel2) {
  CLogCapture log(3);
  for (int code = 257; code < 266; ++code) {
    Status(0, static_cast<ETrunkStatus>(code));
  }
  firstHandlers.OnCardState(firstCard, kCardState, nullptr, 0, caller);
  firstHandlers.OnCardState(firstCard, kCardNotice, "x", 0, caller);
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(application.Take().size(), 30U + 30U + 120U);
}

TEST_F(TrunkStatus, CardLinesShowTheCardsIndex) {
  CLogCapture log(2);
  secondHandlers.OnCardState(secondCard, kCardState, nullptr, 1, caller);
  secondHandlers.OnCardState(secondCard, kCardState, nullptr, 0, caller);
  secondHandlers.OnCardState(secondCard, kCardNotice, "Old/Duplicate Packet -> 5, ignored.", 0, caller);
  secondHandlers.OnCardState(secondCard, kCardWarning, "%s%n", 0, caller);
  secondHandlers.OnCardState(secondCard, kCardWarning, nullptr, 0, caller);
  EXPECT_EQ(log.Lines(),
            (Lines{"  G :Card 1 is up", "  G :Card 1 is down", "  G :Card 1: Old/Duplicate Packet -> 5, ignored.",
                   "  G :Card 1: %s%n", "  G :Card 1: "}));
}

}  // namespace
}  // namespace zelk::test
