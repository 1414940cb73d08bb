// SPDX-License-Identifier: GPL-2.0-only

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

  // A call that is offered, hung up and ends by an acknowledgement alone: the channel keeps it, unconnected.
  void StickOffered(int32_t channel) {
    Offer(static_cast<int>(Channel(channel).Timeslot()));
    const SMessage disconnect = HangUp(channel);
    ForgetAtPeer();
    SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0xE5});
    application.Take();
    ASSERT_NE(View(channel).callHandle, nullptr);
    ASSERT_FALSE(IsValid(View(channel).callHandle));
    ASSERT_FALSE(View(channel).connected);
  }
};

TEST_F(CallRecords, ADeadCallNeverPassesForTheNextOneAtItsPlace) {
  enum class EDoes { kHangup, kReject, kAnswer, kRestart };
  for (const EDoes does : {EDoes::kHangup, EDoes::kReject, EDoes::kAnswer, EDoes::kRestart}) {
    const support::CReusingAllocator allocator;
    ASSERT_NO_FATAL_FAILURE(StickOffered(3));
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
        Raise(4, kPriRestart);
        break;
    }
    EXPECT_TRUE(Sent().empty()) << static_cast<int>(does);
    EXPECT_TRUE(IsValid(View(4).callHandle));
    EXPECT_TRUE(View(4).connected);
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
  EXPECT_TRUE(IsValid(View(4).callHandle));
  Elapse(2 * kDefaultTimeoutMs);
  EXPECT_EQ(Info(3, "CHANNELSTATE"), "INUSE") << "until something resets it";
}

TEST_F(CallRecords, ARingAtThePlaceOfALostCallIsOfferedAndItsEndReported) {
  const support::CReusingAllocator allocator;
  Connect(6);
  const PriCall lost = View(6).callHandle;
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    firstCard.Trunk(0).controller->DestroyCall(lost);
  }
  application.Take();
  const PriCall call = Offer(7);
  ASSERT_GT(allocator.Reused(), 0U);
  ASSERT_NE(View(6).callHandle, lost);
  trunk.peer->Hangup(call, 17);
  trunk.Run();
  EXPECT_EQ(application.Take(), (Posted{{6, EVENT_INCOMING_CALL, 0}, {6, EVENT_DISCONNECTED, 17}}));
}

// Clearings of every kind among calls that go on.
class ManyClearings : public CallRecords {
 protected:
  static constexpr int32_t kChannels = 8;

  // One act on one of the channels. True when it cleared a call.
  bool Act() {
    const auto channel = static_cast<int32_t>(random() % kChannels);
    const auto answer = static_cast<uint32_t>(random() % 8);
    if (View(channel).callHandle == nullptr && random() % 4 == 0) {
      HangUpWhileTheOtherSideRefuses(channel);
      return true;
    }
    if (View(channel).callHandle == nullptr) {
      Connect(channel);
      Steady(channel) = View(channel).callHandle;
      return false;
    }
    if (!View(channel).connected || Steady(channel) == nullptr) {
      // Left behind by a clearing: whatever the application tries reaches nobody's call.
      random() % 2 == 0 ? Hangup(Channel(channel)) : Answer(Channel(channel));
      Elapse(kDefaultTimeoutMs + 1000);
      return false;
    }
    Steady(channel) = nullptr;
    const SMessage disconnect = HangUp(channel);
    answer < 5 ? AnswerClearing(answer, disconnect) : AnswerClearingLate(answer, channel);
    return true;
  }

  void ExpectSteadyCallsUntouched() {
    for (int32_t channel = 0; channel < kChannels; ++channel) {
      const PriCall call = Steady(channel);
      if (call != nullptr) {
        ASSERT_EQ(View(channel).callHandle, call) << "channel " << channel;
        ASSERT_TRUE(IsValid(call)) << "channel " << channel;
        ASSERT_TRUE(View(channel).connected) << "channel " << channel;
      }
    }
  }

  // A channel's call that goes on.
  PriCall& Steady(int32_t channel) { return steady[static_cast<size_t>(channel)]; }

 private:
  void HangUpWhileTheOtherSideRefuses(int32_t channel) {
    ASSERT_TRUE(Dial(Channel(channel), "999", "111"));
    trunk.Run();
    Hangup(Channel(channel));
    trunk.peer->Hangup(trunk.PeerEvent(kPriRing).call, 44);
    trunk.ToUs();
    trunk.Run();
  }
  void ReleaseByPeer(PriCall atPeer) {
    trunk.peer->Hangup(atPeer, 16);
    trunk.Run();
  }
  void AnswerClearing(uint32_t answer, const SMessage& disconnect) {
    switch (answer) {
      case 0:
      case 1:
        return ReleaseByPeer(trunk.PeerEvent(kPriHangupRequest).call);
      case 2:
        ForgetAtPeer();
        return SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0x90});
      case 3:
        ForgetAtPeer();
        return SendToUs(disconnect, kReleaseComplete, {0x08, 0x02, 0x81, 0xD1});
      default:
        ForgetAtPeer();
        return SendToUs(disconnect, kStatus, {0x08, 0x02, 0x81, 0xE5, 0x14, 0x01, 0x00});
    }
  }
  void AnswerClearingLate(uint32_t answer, int32_t channel) {
    const PriCall atPeer = trunk.PeerEvent(kPriHangupRequest).call;
    switch (answer) {
      case 5:
        Hangup(Channel(channel));
        return ReleaseByPeer(atPeer);
      case 6:
        Elapse(kT305Ms + 1000);
        return ReleaseByPeer(atPeer);
      default:
        Elapse(kT305Ms + 2 * kT308Ms + 1000);
        trunk.peer->DestroyCall(atPeer);
    }
  }

  std::mt19937 random{931};
  std::array<PriCall, kChannels> steady;
};

TEST_F(ManyClearings, LoseNoChannelAndTouchNoOtherCall) {
  constexpr int kClearings = 1000;
  const support::CReusingAllocator allocator;
  for (int round = 0; round < kClearings;) {
    round += Act() ? 1 : 0;
    ExpectSteadyCallsUntouched();
    ASSERT_FALSE(HasFailure()) << "round " << round;
    if (trunk.them.events.size() > 50) {
      trunk.them.events.erase(trunk.them.events.begin(), trunk.them.events.end() - 50);
    }
  }
  EXPECT_GT(allocator.Reused(), 300U);
  Elapse(kDefaultTimeoutMs + 1000);
  for (int32_t channel = 0; channel < kChannels; ++channel) {
    if (Steady(channel) == nullptr) {
      EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY") << channel;
    }
  }
}

}  // namespace
}  // namespace zelk::test
