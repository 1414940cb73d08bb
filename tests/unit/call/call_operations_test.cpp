#include "call/call_operations.h"

#include <atomic>
#include <thread>

#include "call/disconnect_cause.h"
#include "call_fixture.h"
#include "support/libpri_surroundings.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Lines = std::vector<std::string>;

constexpr int kUser = 2;
constexpr int kNetwork = 1;

class CallOperations : public CCallFixture {
 protected:
  // The trunk on which channels 0-29 stand, with a peer behind it.
  void JoinTrunk(int nodeType) {
    trunk = std::make_unique<CMemoryTrunk>(firstCard, firstHandlers, 0, nodeType);
    trunk->Run();
    application.Take();
  }
  PriCall Offer(int timeslot) {
    PriCall call = trunk->peer->NewCall();
    EXPECT_GE(trunk->peer->Setup(call, timeslot, "4711", "030123456", 33), 0);
    trunk->Run();
    application.Take();
    return call;
  }
  std::string Message(int32_t channel) {
    const CScopedLock<CMutex> held(Channel(channel).infoLock);
    return Channel(channel).message.data();
  }
  int32_t LastCause(int32_t channel) {
    const CScopedLock<CMutex> held(Channel(channel).infoLock);
    return Channel(channel).lastCause;
  }

  std::unique_ptr<CMemoryTrunk> trunk;
};

TEST_F(CallOperations, DialSendsASetupWithNumbersAndOwnTimeslot) {
  JoinTrunk(kUser);
  Channel(20).startQueue.Push(1);
  {
    const CScopedLock<CMutex> held(Channel(20).infoLock);
    Channel(20).rli = "999";
  }
  ASSERT_TRUE(Dial(Channel(20), "0891234", "030999"));
  trunk->Run();
  const SPriEvent ring = trunk->PeerEvent(kPriRing);
  EXPECT_EQ(ring.calledNumber, "0891234");
  EXPECT_EQ(ring.callingNumber, "030999");
  EXPECT_EQ(ring.channel & 0xFF, 22);
  EXPECT_EQ(Info(20, "CLI"), "030999");
  EXPECT_EQ(Info(20, "DLI"), "0891234");
  EXPECT_EQ(Info(20, "RLI"), "");
  EXPECT_EQ(Info(20, "CALLTYPE"), "Voice");
  EXPECT_EQ(Info(20, "CHANNELSTATE"), "INUSE");
  uint32_t value = 0;
  EXPECT_FALSE(Channel(20).startQueue.Pop(value));
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallOperations, DialWithoutCallingNumberUsesTheLastOne) {
  JoinTrunk(kUser);
  ASSERT_TRUE(Dial(Channel(0), "1", "030999"));
  trunk->Run();
  trunk->peer->Proceeding(trunk->PeerEvent(kPriRing).call, 1);
  trunk->Run();
  ASSERT_TRUE(Hangup(Channel(0)));
  trunk->Run();
  trunk->peer->Hangup(trunk->PeerEvent(kPriHangupRequest).call, 16);
  trunk->Run();
  ASSERT_EQ(Channel(0).callHandle, nullptr);
  ASSERT_TRUE(Dial(Channel(0), "2", nullptr));
  trunk->Run();
  EXPECT_EQ(trunk->PeerEvent(kPriRing).callingNumber, "030999");
  EXPECT_EQ(trunk->PeerEvent(kPriRing).calledNumber, "2");
}

TEST_F(CallOperations, DialWithNoCallingNumberEverSendsAnEmptyOne) {
  JoinTrunk(kUser);
  ASSERT_TRUE(Dial(Channel(0), "1", nullptr));
  trunk->Run();
  EXPECT_EQ(trunk->PeerEvent(kPriRing).callingNumber, "");
}

TEST_F(CallOperations, DialOnAChannelWithACallFailsAndLeavesTheTexts) {
  CLogCapture log(0);
  JoinTrunk(kUser);
  ASSERT_TRUE(Dial(Channel(0), "1", "2"));
  PriCall call = Channel(0).callHandle;
  EXPECT_FALSE(Dial(Channel(0), "3", "4"));
  EXPECT_EQ(Info(0, "DLI"), "1");
  EXPECT_EQ(Info(0, "CLI"), "2");
  EXPECT_EQ(Channel(0).callHandle, call);
  EXPECT_EQ(log.Lines(), (Lines{"  G :Card 0: Trunk 0 - DCHANNEL UP"}));
}

TEST_F(CallOperations, DialWithoutControllerFailsWithALine) {
  CLogCapture log(9);
  EXPECT_FALSE(Dial(Channel(35), "1", "2"));
  EXPECT_EQ(Channel(35).callHandle, nullptr);
  EXPECT_EQ(Info(35, "DLI"), "1");
  EXPECT_EQ(log.Lines(), (Lines{" 35 :Dial() -> new call failed"}));
}

TEST_F(CallOperations, DialWithoutNumberFailsAndChangesNothing) {
  JoinTrunk(kUser);
  EXPECT_FALSE(Dial(Channel(0), nullptr, "2"));
  EXPECT_EQ(Channel(0).callHandle, nullptr);
  ASSERT_TRUE(Dial(Channel(0), "1", nullptr));
  EXPECT_EQ(Info(0, "CLI"), "");
}

TEST_F(CallOperations, NumbersOfAnyLengthAreTaken) {
  JoinTrunk(kUser);
  const std::string number(5000, '7');
  ASSERT_TRUE(Dial(Channel(0), number.c_str(), number.c_str()));
  trunk->Run();
  EXPECT_EQ(trunk->PeerEvent(kPriRing).calledNumber, std::string(31, '7'));
  EXPECT_EQ(Info(0, "DLI"), number);
}

TEST_F(CallOperations, CallThatLibpriCannotMakeFailsWithALine) {
  if (!support::CanReplaceCalloc()) {
    GTEST_SKIP() << "this build's calloc belongs to its sanitizer";
  }
  JoinTrunk(kUser);
  CLogCapture log(9);
  support::FailCalloc(1);
  EXPECT_FALSE(Dial(Channel(0), "1", "2"));
  EXPECT_FALSE(support::IsCallocFailureDue());
  EXPECT_EQ(Channel(0).callHandle, nullptr);
  EXPECT_EQ(log.Lines(), (Lines{"  0 :Dial() -> new call failed"}));
}

TEST_F(CallOperations, RefusedSetupKeepsTheDestroyedCallUntilAReset) {
  if (!support::CanReplaceCalloc()) {
    GTEST_SKIP() << "this build's calloc belongs to its sanitizer";
  }
  JoinTrunk(kUser);
  CLogCapture log(9);
  support::FailCalloc(2);  // the call can be made, the request cannot
  EXPECT_FALSE(Dial(Channel(0), "1", "2"));
  EXPECT_FALSE(support::IsCallocFailureDue());
  EXPECT_TRUE(trunk->fromUs.frames.empty());
  {
    CTrunk& own = firstCard.Trunk(0);
    const CScopedLock<CRecursiveMutex> held(own.lock);
    EXPECT_FALSE(own.controller->IsCallValid(Channel(0).callHandle));
  }
  EXPECT_EQ(log.Lines(), (Lines{"  0 :Dial() -> new call setup failed"}));
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "INUSE");
  EXPECT_FALSE(Dial(Channel(0), "1", "2"));
  EXPECT_TRUE(Hangup(Channel(0)));
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "INUSE");
  EXPECT_FALSE(Reject(Channel(0)));
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "READY");
  EXPECT_TRUE(Dial(Channel(0), "1", "2"));
}

TEST_F(CallOperations, AnswerSendsConnectAndWaitsForTheNetwork) {
  JoinTrunk(kUser);
  Offer(5);
  Channel(4).startQueue.Push(1);
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_FALSE(Channel(4).connected);
  EXPECT_EQ(application.Take(), Posted{});
  trunk->ToPeer();
  EXPECT_NE(trunk->PeerEvent(kPriAnswer).call, nullptr);
  uint32_t value = 0;
  EXPECT_FALSE(Channel(4).startQueue.Pop(value));
}

TEST_F(CallOperations, AnswerOnTheNetworkSideConnectsAtOnce) {
  JoinTrunk(kNetwork);
  Offer(5);
  firstCard.Trunk(0).echoEnabled = true;
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_TRUE(Channel(4).connected);
  EXPECT_TRUE(firstCard.Audio().EchoSwitch(0));
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
}

TEST_F(CallOperations, AnswerWithoutCallSucceedsResetsAndLogs) {
  CLogCapture log(2);
  Channel(35).endQueue.Push(9);
  Channel(35).direction = 1;
  EXPECT_TRUE(Answer(Channel(35)));
  EXPECT_EQ(Channel(35).direction, 0);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_FALSE(Channel(35).connected);
  EXPECT_EQ(LastCause(35), 16);
  EXPECT_EQ(Message(35), "Answer() -> Answer() failed in Q931 Connect().");
  uint32_t value = 0;
  EXPECT_FALSE(Channel(35).endQueue.Pop(value));
  EXPECT_EQ(log.Lines(), (Lines{" 35 :Answer() -> Answer() failed in Q931 Connect()."}));
}

TEST_F(CallOperations, FailedAnswerIsNotLoggedAboveLevel2) {
  CLogCapture log(3);
  EXPECT_TRUE(Answer(Channel(35)));
  EXPECT_EQ(log.Lines(), Lines{});
}

// The end of the call waits at the trunk's lock while the application answers.
TEST_F(CallOperations, AnswerOnTheNetworkSideNeverConnectsACallThatHasEnded) {
  constexpr int kRounds = 500;
  JoinTrunk(kNetwork);
  for (int round = 0; round < kRounds; ++round) {
    Offer(5);
    SPriEvent end;
    end.call = Channel(4).callHandle;
    end.cause = 16;
    std::atomic<bool> isAtTheLock{false};
    std::thread control;
    trunk->fromUs.onFrame = [&] {
      control = std::thread([&] {
        isAtTheLock = true;
        const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
        firstHandlers.OnCallEvent(firstCard, 0, 5, CALLEV_HANGUP, end);
      });
      while (!isAtTheLock) {
        std::this_thread::yield();
      }
    };
    Answer(Channel(4));
    control.join();
    ASSERT_EQ(Channel(4).callHandle, nullptr) << round;
    ASSERT_FALSE(Channel(4).connected) << round;
    trunk->Run();
    trunk->peerEvents.clear();
    application.Take();
  }
}

TEST_F(CallOperations, FailedAnswerOnTheNetworkSideStillConnects) {
  JoinTrunk(kNetwork);
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_CONNECTED, 0}}));
  EXPECT_TRUE(Channel(4).connected);
  EXPECT_EQ(Channel(4).callHandle, nullptr);
}

TEST_F(CallOperations, FailedAnswerLeavesTheTrunkLockFree) {
  Answer(Channel(35));
  std::atomic<bool> taken{false};
  std::thread other([&] {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(1).lock);
    taken = true;
  });
  other.join();
  EXPECT_TRUE(taken);
}

TEST_F(CallOperations, AnswerAndRejectOfAConnectedCallSendNothing) {
  JoinTrunk(kNetwork);
  Offer(5);
  Answer(Channel(4));
  trunk->Run();
  application.Take();
  trunk->peerEvents.clear();
  EXPECT_TRUE(Answer(Channel(4)));
  EXPECT_TRUE(Reject(Channel(4)));
  EXPECT_TRUE(trunk->fromUs.frames.empty());
  EXPECT_NE(Channel(4).callHandle, nullptr);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallOperations, RejectClearsTheOfferWithCause21AndResetsWithoutEvent) {
  JoinTrunk(kUser);
  Offer(5);
  EXPECT_FALSE(Reject(Channel(4)));
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Info(4, "CALLTYPE"), "");
  EXPECT_EQ(Info(4, "CHANNELSTATE"), "READY");
  EXPECT_EQ(LastCause(4), 16);
  trunk->ToPeer();
  const SPriEvent cleared = trunk->PeerEvent(kPriHangupRequest);
  EXPECT_NE(cleared.call, nullptr);
  EXPECT_EQ(cleared.cause, kCauseCallRejected);
}

TEST_F(CallOperations, RejectWithoutCallResetsAndIsFalse) {
  EXPECT_FALSE(Reject(Channel(35)));
  EXPECT_EQ(LastCause(35), 16);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallOperations, OperationsClearTheMessageOfTheLastFailure) {
  Answer(Channel(35));
  ASSERT_NE(Message(35), "");
  Reject(Channel(35));
  EXPECT_EQ(Message(35), "");
  Answer(Channel(35));
  Dial(Channel(35), "1", nullptr);
  EXPECT_EQ(Message(35), "");
  Answer(Channel(35));
  Channel(35).connected = true;
  Answer(Channel(35));  // nothing to do
  EXPECT_EQ(Message(35), "");
}

TEST_F(CallOperations, HangupClearsWithCause16AndLeavesTheResetToTheNetwork) {
  JoinTrunk(kUser);
  Offer(5);
  CLogCapture log(9);
  Channel(4).direction = 1;
  EXPECT_TRUE(Hangup(Channel(4)));
  EXPECT_EQ(Channel(4).direction, 0);
  EXPECT_NE(Channel(4).callHandle, nullptr);
  EXPECT_EQ(application.Take(), Posted{});
  trunk->ToPeer();
  EXPECT_EQ(trunk->PeerEvent(kPriHangupRequest).cause, kCauseNormalClearing);
  trunk->peer->Hangup(trunk->PeerEvent(kPriHangupRequest).call, 16);
  trunk->Run();
  EXPECT_EQ(application.Take(), (Posted{{4, EVENT_DISCONNECTED, 16}}));
  EXPECT_EQ(Channel(4).callHandle, nullptr);
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(CallOperations, HangupOfAnIdleChannelSendsAndLogsNothing) {
  JoinTrunk(kUser);
  CLogCapture log(0);
  EXPECT_TRUE(Hangup(Channel(4)));
  EXPECT_TRUE(trunk->fromUs.frames.empty());
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(CallOperations, HangupOfACallThatLibpriDoesNotKnowLogs) {
  CLogCapture log(9);
  Channel(35).callHandle = PriCall(0x10);
  EXPECT_TRUE(Hangup(Channel(35)));
  EXPECT_EQ(log.Lines(), (Lines{" 35 :Hangup()-> Failed in Q931 release()"}));
}

// Applications dial and hang up while the network hangs up and trunks and cards come and go.
TEST_F(CallOperations, DialHangupAndLossesAtTheSameTimeNeitherRaceNorLock) {
  JoinTrunk(kUser);
  application.reaction = [this](const SPosted& posted) {
    if (posted.event == EVENT_INCOMING_CALL || posted.event == EVENT_DISCONNECTED) {
      Hangup(Channel(posted.channel));
    }
  };
  std::atomic<bool> stop{false};
  std::atomic<uint32_t> dialled{0};
  std::vector<std::thread> threads;
  for (int32_t channel = 0; channel < 4; ++channel) {
    threads.emplace_back([this, channel, &stop, &dialled] {
      while (!stop) {
        dialled += Dial(Channel(channel), "1", "2") ? 1 : 0;
        Info(channel, "CHANNELSTATE");
        Answer(Channel(channel));
        Hangup(Channel(channel));
        Reject(Channel(channel));
      }
    });
  }
  threads.emplace_back([this, &stop] {
    while (!stop) {
      firstHandlers.OnCardDown(caller);
    }
  });
  for (int turn = 0; turn < 200 || dialled < 200; ++turn) {
    CTrunk& own = firstCard.Trunk(0);
    const CScopedLock<CRecursiveMutex> held(own.lock);
    if (turn % 2 == 0) {
      firstHandlers.OnDchannelUp(0, caller);
    } else {
      firstHandlers.OnDchannelDown(0, caller);
    }
    SPriEvent event;
    event.call = Channel(turn % 4).callHandle;
    event.cause = 16;
    firstHandlers.OnCallEvent(firstCard, 0, static_cast<uint16_t>(turn % 4 + 1),
                              turn % 3 == 0 ? CALLEV_HANGUP : CALLEV_HANGUP_REQ, event);
    trunk->fromUs.frames.clear();
  }
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  application.reaction = nullptr;
  // Whatever was under way, the loss of the trunk ends it, and the channels and their neighbours are as new.
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  for (int32_t channel = 0; channel < 30; ++channel) {
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY") << channel;
    EXPECT_FALSE(Channel(channel).connected) << channel;
    EXPECT_EQ(Info(channel, "DLI"), "") << channel;
  }
  application.Take();
  trunk->fromUs.frames.clear();
  EXPECT_TRUE(Dial(Channel(0), "1", "2"));
}

}  // namespace
}  // namespace zelk::test
