// What the other side may answer to a clearing that the library begins (ITU-T Q.931, 5.3 and 5.8), and what becomes of
// the channel, and of the calls beside it, when libpri confirms it without a release of its own.
#include <array>
#include <random>

#include "call/disconnect_cause.h"
#include "call_fixture.h"
#include "support/libpri_surroundings.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kRelease = 0x4D;
constexpr uint8_t kReleaseComplete = 0x5A;
constexpr uint8_t kStatus = 0x7D;
constexpr uint8_t kDisconnect = 0x45;
constexpr uint32_t kDefaultTimeoutMs = 5000;
constexpr int64_t kT305Ms = 30000;
constexpr int64_t kT308Ms = 4000;
constexpr int64_t kT313Ms = 4000;

// A message of ours as it stands in its frame: 4 bytes of layer 2, then the discriminator and a reference of two bytes.
struct SMessage {
  std::array<uint8_t, 2> reference{};
  uint8_t type = 0;
};

class CallClearing : public CTrunkFixture {
 protected:
  static void SetUpTestSuite() { InstallPriMessageHook(); }

  void SetUp() override {
    if (!support::CanMoveLibpriClock()) {
      GTEST_SKIP() << "libpri's clock cannot be moved on this system";
    }
  }
  void TearDown() override { Config().clearedCallTimeoutS = 5; }

  void Elapse(int64_t ms) {
    constexpr int64_t kStepMs = 500;
    for (int64_t passed = 0; passed < ms; passed += kStepMs) {
      support::MoveLibpriClock(kStepMs);
      nowMs += static_cast<uint32_t>(kStepMs);
      trunk.RunTimers(nowMs);
    }
  }

  // Our messages that have not been carried to the other side.
  std::vector<SMessage> Sent() const {
    std::vector<SMessage> messages;
    for (const Bytes& frame : trunk.fromUs.frames) {
      if (frame.size() > 9 && frame[4] == 0x08 && frame[5] == 2) {
        messages.push_back({{frame[6], frame[7]}, frame[8]});
      }
    }
    return messages;
  }
  size_t CountSent(uint8_t type) const {
    const std::vector<SMessage> messages = Sent();
    return static_cast<size_t>(std::count_if(messages.begin(), messages.end(),
                                             [type](const SMessage& message) { return message.type == type; }));
  }

  // A message of the other side in an unnumbered frame, which layer 2 takes whatever the sequence.
  void SendToUs(const SMessage& about, uint8_t type, const Bytes& elements) {
    Bytes frame{0x02, 0x01, 0x03, 0x08, 2, static_cast<uint8_t>(about.reference[0] ^ 0x80), about.reference[1], type};
    frame.insert(frame.end(), elements.begin(), elements.end());
    frame.insert(frame.end(), {0, 0});
    trunk.fromPeer.frames.push_back(std::move(frame));
    trunk.ToUs();
  }

  // Begins the clearing and tells what we sent; the other side's layer 3 learns of it.
  SMessage HangUp(int32_t channel) {
    EXPECT_TRUE(Hangup(Channel(channel)));
    const std::vector<SMessage> sent = Sent();
    EXPECT_EQ(sent.size(), 1U);
    trunk.Run();
    return sent.empty() ? SMessage{} : sent.front();
  }
  void ForgetAtPeer() { trunk.peer->DestroyCall(trunk.PeerEvent(kPriHangupRequest).call); }

  // A connected call that ends by an acknowledgement alone.
  void StickConnected(int32_t channel) {
    Connect(channel);
    const SMessage disconnect = HangUp(channel);
    ForgetAtPeer();
    SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0xE5});
    ASSERT_EQ(application.Take(), Posted{});
    ASSERT_EQ(Info(channel, "CHANNELSTATE"), "INUSE");
  }

  void ExpectReleasedLate(int32_t channel, int32_t cause) {
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "INUSE");
    Elapse(kDefaultTimeoutMs - 500);
    EXPECT_EQ(application.Take(), Posted{});
    Elapse(1500);
    EXPECT_EQ(application.Take(), (Posted{{channel, EVENT_DISCONNECTED, cause}}));
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY");
    EXPECT_EQ(Info(channel, "CALLTYPE"), "");
    EXPECT_FALSE(Channel(channel).connected);
    Connect(channel);
  }

  uint32_t nowMs = 1000;
};

TEST_F(CallClearing, AnsweredByReleaseIsReportedAtOnce) {
  Connect(3);
  HangUp(3);
  trunk.peer->Hangup(trunk.PeerEvent(kPriHangupRequest).call, 16);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 16}}));
  Elapse(2 * kDefaultTimeoutMs);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(CallClearing, AnsweredByReleaseCompleteIsReportedLateWithItsCause) {
  Connect(3);
  SendToUs(HangUp(3), kReleaseComplete, {0x08, 0x02, 0x81, 0xE5});
  EXPECT_EQ(application.Take(), Posted{});
  ForgetAtPeer();
  ExpectReleasedLate(3, 101);
}

TEST_F(CallClearing, AnsweredByReleaseCompleteWithoutCauseIsReportedAs16) {
  Connect(3);
  SendToUs(HangUp(3), kReleaseComplete, {});
  ForgetAtPeer();
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, OfACallThatTheOtherSideNoLongerKnowsIsReportedLate) {
  Connect(3);
  EXPECT_TRUE(Hangup(Channel(3)));
  trunk.peer->DestroyCall(trunk.PeerEvent(kPriConnectAck).call);
  trunk.Run();  // it answers by itself: RELEASE COMPLETE, invalid call reference
  ExpectReleasedLate(3, 81);
}

TEST_F(CallClearing, AnsweredByStatusOfTheNullStateIsReportedLate) {
  Connect(3);
  SendToUs(HangUp(3), kStatus, {0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00});
  ForgetAtPeer();
  ExpectReleasedLate(3, 101);
}

TEST_F(CallClearing, AnsweredOnlyAfterT305ByReleaseCompleteIsReportedLate) {
  Connect(3);
  HangUp(3);
  Elapse(kT305Ms - 1000);
  EXPECT_EQ(trunk.PeerEvent(kPriHangup).call, nullptr);
  Elapse(2000);
  const PriCall released = trunk.PeerEvent(kPriHangup).call;
  ASSERT_NE(released, nullptr);  // our RELEASE
  EXPECT_EQ(application.Take(), Posted{});
  trunk.peer->Hangup(released, 16);
  trunk.Run();
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, AnsweredByNothingAtAllIsReportedLateAfterT308HasRunTwice) {
  Connect(3);
  HangUp(3);
  Elapse(kT305Ms + kT308Ms + 1000);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_TRUE(IsValid(Channel(3).callHandle));
  Elapse(kT308Ms);
  EXPECT_FALSE(IsValid(Channel(3).callHandle));
  ForgetAtPeer();
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 16}}));
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

TEST_F(CallClearing, CrossedByARefusalOfTheSetupIsReportedLateWithTheRefusalsCause) {
  ASSERT_TRUE(Dial(Channel(3), "999", "111"));
  trunk.Run();
  EXPECT_TRUE(Hangup(Channel(3)));
  trunk.peer->Hangup(trunk.PeerEvent(kPriRing).call, 44);
  trunk.ToUs();
  EXPECT_EQ(application.Take(), Posted{});
  trunk.Run();
  ExpectReleasedLate(3, 44);
}

TEST_F(CallClearing, BegunByT313AndAnsweredByReleaseCompleteIsReportedLate) {
  Offer(4);
  ASSERT_TRUE(Answer(Channel(3)));
  trunk.Run();
  application.Take();
  support::MoveLibpriClock(kT313Ms + 500);
  const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
  SPriEvent event;
  firstCard.Trunk(0).controller->RunTimers(event);
  ASSERT_EQ(CountSent(kDisconnect), 1U);
  const SMessage disconnect = Sent().back();
  trunk.ToPeer();
  ForgetAtPeer();
  SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0x90});
  EXPECT_EQ(application.Take(), Posted{});
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, BegunByARestartAndAnsweredByReleaseCompleteIsReportedLate) {
  Connect(3);
  Raise(4, CALLEV_RESTART);
  ASSERT_EQ(CountSent(kDisconnect), 1U);
  const SMessage disconnect = Sent().back();
  trunk.Run();
  ForgetAtPeer();
  SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0x90});
  ExpectReleasedLate(3, 16);
}

TEST_F(CallClearing, OnAChannelThatWasDownAlreadyWhenTheDchannelFellIsReportedLate) {
  Channel(3).Open();
  Connect(3);
  Channel(3).Close();
  HangUp(3);
  ForgetAtPeer();
  trunk.fromPeer.frames.push_back({0x02, 0x01, 0x53, 0, 0});  // DISC
  trunk.ToUs();
  trunk.RunTimers(nowMs);
  for (const SPosted& posted : application.Take()) {
    EXPECT_NE(posted.channel, 3);
  }
  EXPECT_NE(Channel(3).callHandle, nullptr);
  EXPECT_FALSE(IsValid(Channel(3).callHandle));
  Elapse(kDefaultTimeoutMs + 1000);
  const Posted posted = application.Take();
  EXPECT_EQ(std::count(posted.begin(), posted.end(), (SPosted{3, EVENT_DISCONNECTED, 27})), 1);
  EXPECT_EQ(Channel(3).callHandle, nullptr);
}

// The cause is mandatory only in the message that begins a clearing (ITU-T Q.931, table 3-9).
TEST_F(CallClearing, AnsweredByAReleaseWithoutCauseIsReportedWithNone) {
  Connect(3);
  SendToUs(HangUp(3), kRelease, {});
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, -1}}));
  EXPECT_STREQ(DisconnectCauseName(-1), "REASON_UNKNOWN");
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

// ---- the wait ----

TEST_F(CallClearing, TimeoutIsTheConfiguredOne) {
  Config().clearedCallTimeoutS = 60;
  StickConnected(3);
  Elapse(59000);
  EXPECT_EQ(application.Take(), Posted{});
  Elapse(2000);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_DISCONNECTED, 101}}));
}

TEST_F(CallClearing, TimeoutOf0KeepsTheChannelUntilItsTrunkIsLost) {
  Config().clearedCallTimeoutS = 0;
  StickConnected(3);
  EXPECT_FALSE(firstHandlers.AwaitsTime());
  Elapse(600000);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "INUSE");
  EXPECT_FALSE(Dial(Channel(3), "1", "2"));
  firstHandlers.OnTrunkStatus(firstCard, 0, kDchannelDown, 0, 0, caller);
  firstHandlers.OnTrunkStatus(firstCard, 0, kDchannelUp, 0, 0, caller);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

TEST_F(CallClearing, TheCardIsAskedForItsTimeOnlyWhileACallWaits) {
  EXPECT_FALSE(firstHandlers.AwaitsTime());
  StickConnected(3);
  EXPECT_TRUE(firstHandlers.AwaitsTime());
  EXPECT_FALSE(secondHandlers.AwaitsTime());
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_FALSE(firstHandlers.AwaitsTime());
}

TEST_F(CallClearing, WhatFreesTheChannelFirstIsTheOnlyEnd) {
  Offer(4);
  const SMessage disconnect = HangUp(3);
  ForgetAtPeer();
  SendToUs(disconnect, kReleaseComplete, {});
  application.Take();
  EXPECT_FALSE(Reject(Channel(3)));
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
  Connect(3);
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_EQ(application.Take(), Posted{});
  EXPECT_TRUE(Channel(3).connected);
}

TEST_F(CallClearing, ARingInTheMeantimeIsOfferedUnconnectedAndCanBeAnswered) {
  StickConnected(3);
  Offer(4);
  EXPECT_EQ(application.Take(), (Posted{{3, EVENT_INCOMING_CALL, 0}}));
  EXPECT_FALSE(Channel(3).connected);
  EXPECT_TRUE(Answer(Channel(3)));
  trunk.ToPeer();
  EXPECT_NE(trunk.PeerEvent(kPriAnswer).call, nullptr);
  Elapse(kDefaultTimeoutMs + 1000);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "INUSE");
}

TEST_F(CallClearing, ARingOnAChannelLeftConnectedCanBeRejected) {
  StickConnected(3);
  Offer(4);
  EXPECT_FALSE(Reject(Channel(3)));
  trunk.ToPeer();
  EXPECT_EQ(trunk.PeerEvent(kPriHangupRequest).cause, kCauseCallRejected);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "READY");
}

// ---- clearing twice ----

TEST_F(CallClearing, ASecondHangUpIsLeftAloneAndTheOtherSidesReleaseIsAnsweredAtOnce) {
  enum class EAgain { kHangup, kReject, kRestart };
  for (const EAgain again : {EAgain::kHangup, EAgain::kReject, EAgain::kRestart}) {
    Offer(4);
    trunk.peerEvents.clear();
    EXPECT_TRUE(Hangup(Channel(3)));
    switch (again) {
      case EAgain::kHangup:
        EXPECT_TRUE(Hangup(Channel(3)));
        break;
      case EAgain::kReject:
        EXPECT_FALSE(Reject(Channel(3)));
        break;
      case EAgain::kRestart:
        Raise(4, CALLEV_RESTART);
        break;
    }
    EXPECT_EQ(Sent().size(), 1U);
    trunk.Run();
    const PriCall call = trunk.PeerEvent(kPriHangupRequest).call;
    ASSERT_NE(call, nullptr);
    trunk.peer->Hangup(call, 16);  // RELEASE
    trunk.ToUs();
    EXPECT_EQ(CountSent(kReleaseComplete), 1U) << "what the other side waits for";
    trunk.Run();
    EXPECT_FALSE(trunk.peer->IsCallValid(call));
    application.Take();
  }
}

// ---- records that are used again ----

class CallRecords : public CallClearing {
 protected:
  void SetUp() override {
    CallClearing::SetUp();
    if (!support::CanReplaceCalloc()) {
      GTEST_SKIP() << "this build's allocator belongs to its sanitizer, or cannot be replaced";
    }
  }
};

TEST_F(CallRecords, ADeadCallNeverPassesForTheNextOneAtItsPlace) {
  enum class EDoes { kHangup, kReject, kAnswer, kRestart };
  for (const EDoes does : {EDoes::kHangup, EDoes::kReject, EDoes::kAnswer, EDoes::kRestart}) {
    const support::CReusingAllocator allocator;
    StickConnected(3);
    Channel(3).connected = false;
    Connect(4);
    ASSERT_GT(allocator.Reused(), 0U);
    trunk.Run();
    switch (does) {
      case EDoes::kHangup:
        EXPECT_TRUE(Hangup(Channel(3)));
        break;
      case EDoes::kReject:
        EXPECT_FALSE(Reject(Channel(3)));
        break;
      case EDoes::kAnswer:
        EXPECT_TRUE(Answer(Channel(3)));
        break;
      case EDoes::kRestart:
        Raise(4, CALLEV_RESTART);
        break;
    }
    EXPECT_TRUE(Sent().empty()) << static_cast<int>(does);
    EXPECT_TRUE(IsValid(Channel(4).callHandle));
    EXPECT_TRUE(Channel(4).connected);
    Reject(Channel(3));
    EXPECT_TRUE(Hangup(Channel(4)));
    trunk.Run();
    trunk.peer->Hangup(trunk.PeerEvent(kPriHangupRequest).call, 16);
    trunk.Run();
    application.Take();
  }
}

TEST_F(CallRecords, TheCallOfARefusedSetupNeverPassesForTheNextOneAtItsPlace) {
  const support::CReusingAllocator allocator;
  support::FailCalloc(2);  // the call can be made, the request cannot
  EXPECT_FALSE(Dial(Channel(3), "1", "2"));
  ASSERT_FALSE(support::IsCallocFailureDue());
  Connect(4);
  ASSERT_GT(allocator.Reused(), 0U);
  EXPECT_TRUE(Hangup(Channel(3)));
  EXPECT_TRUE(Sent().empty());
  EXPECT_TRUE(IsValid(Channel(4).callHandle));
  Elapse(2 * kDefaultTimeoutMs);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "INUSE") << "until something resets it";
}

TEST_F(CallRecords, ARingAtThePlaceOfALostCallIsOfferedAndItsEndReported) {
  const support::CReusingAllocator allocator;
  Connect(6);
  const PriCall lost = Channel(6).callHandle;
  firstHandlers.OnTrunkStatus(firstCard, 0, kDchannelDown, 0, 0, caller);
  firstHandlers.OnTrunkStatus(firstCard, 0, kDchannelUp, 0, 0, caller);
  {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    firstCard.Trunk(0).controller->DestroyCall(lost);
  }
  application.Take();
  const PriCall call = Offer(7);
  ASSERT_GT(allocator.Reused(), 0U);
  ASSERT_NE(Channel(6).callHandle, lost);
  trunk.peer->Hangup(call, 17);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_INCOMING_CALL, 0}, {6, EVENT_DISCONNECTED, 17}}));
}

// A thousand clearings of every kind among calls that go on.
TEST_F(CallRecords, AThousandClearingsLoseNoChannelAndTouchNoOtherCall) {
  constexpr int kClearings = 1000;
  constexpr int32_t kChannels = 8;
  const support::CReusingAllocator allocator;
  std::mt19937 random(931);
  std::array<PriCall, kChannels> steady;  // a channel's call that goes on
  for (int round = 0; round < kClearings;) {
    const auto channel = static_cast<int32_t>(random() % kChannels);
    const auto answer = random() % 8;
    if (Channel(channel).callHandle == nullptr && random() % 4 == 0) {
      // Hung up while the other side refuses it.
      ASSERT_TRUE(Dial(Channel(channel), "999", "111"));
      trunk.Run();
      Hangup(Channel(channel));
      trunk.peer->Hangup(trunk.PeerEvent(kPriRing).call, 44);
      trunk.ToUs();
      trunk.Run();
      ++round;
    } else if (Channel(channel).callHandle == nullptr) {
      ASSERT_NO_FATAL_FAILURE(Connect(channel)) << round;
      steady[static_cast<size_t>(channel)] = Channel(channel).callHandle;
    } else if (!Channel(channel).connected || steady[static_cast<size_t>(channel)] == nullptr) {
      // Left behind by a clearing: whatever the application tries reaches nobody's call.
      random() % 2 == 0 ? Hangup(Channel(channel)) : Answer(Channel(channel));
      Elapse(kDefaultTimeoutMs + 1000);
    } else {
      ++round;
      steady[static_cast<size_t>(channel)] = nullptr;
      const SMessage disconnect = HangUp(channel);
      const PriCall atPeer = trunk.PeerEvent(kPriHangupRequest).call;
      switch (answer) {
        case 0:
        case 1:
          trunk.peer->Hangup(atPeer, 16);
          trunk.Run();
          break;
        case 2:
          ForgetAtPeer();
          SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0x90});
          break;
        case 3:
          ForgetAtPeer();
          SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0xD1});
          break;
        case 4:
          ForgetAtPeer();
          SendToUs(disconnect, kStatus, {0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00});
          break;
        case 5:
          Hangup(Channel(channel));
          trunk.peer->Hangup(atPeer, 16);
          trunk.Run();
          break;
        case 6:
          Elapse(kT305Ms + 1000);
          trunk.peer->Hangup(atPeer, 16);
          trunk.Run();
          break;
        default:
          Elapse(kT305Ms + 2 * kT308Ms + 1000);
          trunk.peer->DestroyCall(atPeer);
      }
    }
    for (int32_t other = 0; other < kChannels; ++other) {
      const PriCall call = steady[static_cast<size_t>(other)];
      if (call != nullptr) {
        ASSERT_EQ(Channel(other).callHandle, call) << "round " << round << ", channel " << other;
        ASSERT_TRUE(IsValid(call)) << "round " << round << ", channel " << other;
        ASSERT_TRUE(Channel(other).connected) << "round " << round << ", channel " << other;
      }
    }
    if (trunk.peerEvents.size() > 50) {
      trunk.peerEvents.erase(trunk.peerEvents.begin(), trunk.peerEvents.end() - 50);
    }
  }
  EXPECT_GT(allocator.Reused(), 300U);
  Elapse(kDefaultTimeoutMs + 1000);
  for (int32_t channel = 0; channel < kChannels; ++channel) {
    if (steady[static_cast<size_t>(channel)] == nullptr) {
      EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY") << channel;
    }
  }
}

}  // namespace
}  // namespace zelk::test
