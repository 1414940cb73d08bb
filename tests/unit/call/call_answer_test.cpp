// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <thread>

#include "call/call_operations.h"
#include "operations_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Lines = std::vector<std::string>;

using CallAnswer = COperationsFixture;
using CallAnswerOfIncoming = CIncomingFixture;

TEST_F(CallAnswerOfIncoming, WithoutCallSucceedsResetsAndLogs) {
  CLogCapture log(2);
  Channel(35).EndQueue().Push(9);
  ASSERT_EQ(View(35).direction, 1);
  EXPECT_TRUE(Answer(Channel(35)));
  EXPECT_EQ(View(35).direction, 0);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_FALSE(View(35).connected);
  EXPECT_EQ(Channel(35).LastCause(), 16);
  EXPECT_EQ(Channel(35).Message(), "Answer() -> Answer() failed in Q931 Connect().");
  uint32_t value = 0;
  EXPECT_FALSE(Channel(35).EndQueue().Pop(value));
  EXPECT_EQ(log.Lines(), (Lines{" 35 :Answer() -> Answer() failed in Q931 Connect()."}));
}

TEST_F(CallAnswer, SendsConnectAndWaitsForTheNetwork) {
  JoinTrunk(kUser);
  Offer(5);
  Channel(4).StartQueue().Push(1);
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_FALSE(View(4).connected);
  EXPECT_EQ(application.Take(), Posted{});
  trunk->ToPeer();
  EXPECT_NE(trunk->PeerEvent(kPriAnswer).call, nullptr);
  uint32_t value = 0;
  EXPECT_FALSE(Channel(4).StartQueue().Pop(value));
}

TEST_F(CallAnswer, OnTheNetworkSideConnectsAtOnce) {
  JoinTrunk(kNetwork);
  Offer(5);
  firstCard.Trunk(0).echoEnabled = true;
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_TRUE(View(4).connected);
  EXPECT_TRUE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
}

TEST_F(CallAnswer, FailedAnswerIsNotLoggedAboveLevel2) {
  CLogCapture log(3);
  EXPECT_TRUE(Answer(Channel(35)));
  EXPECT_EQ(log.Lines(), Lines{});
}

// The end of the call waits at the trunk's lock while the application answers.
TEST_F(CallAnswer, OnTheNetworkSideNeverConnectsACallThatHasEnded) {
  constexpr int kRounds = 500;
  JoinTrunk(kNetwork);
  for (int round = 0; round < kRounds; ++round) {
    Offer(5);
    SPriEvent end;
    end.call = View(4).callHandle;
    end.cause = 16;
    std::atomic<bool> isAtTheLock{false};
    std::thread control;
    trunk->us.onFrame = [&] {
      control = std::thread([&] {
        isAtTheLock = true;
        Raise(5, kPriHangup, end);
      });
      while (!isAtTheLock) {
        std::this_thread::yield();
      }
    };
    Answer(Channel(4));
    control.join();
    ASSERT_EQ(View(4).callHandle, nullptr) << round;
    ASSERT_FALSE(View(4).connected) << round;
    trunk->Run();
    trunk->them.events.clear();
    application.Take();
  }
}

TEST_F(CallAnswer, FailedAnswerOnTheNetworkSideStillConnects) {
  JoinTrunk(kNetwork);
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
  EXPECT_TRUE(View(4).connected);
  EXPECT_EQ(View(4).callHandle, nullptr);
}

TEST_F(CallAnswer, FailedAnswerLeavesTheTrunkLockFree) {
  Answer(Channel(35));
  std::atomic<bool> taken{false};
  std::thread other([&] {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(1).lock);
    taken = true;
  });
  other.join();
  EXPECT_TRUE(taken);
}

}  // namespace
}  // namespace zelk::test
