// libpri's call records, used again as soon as they are freed: calls that are gone, and the calls beside them.
#include <random>

#include "clearing_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

class CallRecords : public CClearingFixture {
 protected:
  void SetUp() override {
    CClearingFixture::SetUp();
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
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
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
