// SPDX-License-Identifier: GPL-2.0-only

// Both sides call, answer and clear at random while bytes of layer 3 are damaged on their way to us.
#include <random>

#include "call/call_events.h"
#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;

class DamagedMessages : public CTrunkFixture {
 protected:
  void DamageFrames() {
    trunk.alter = [this](std::vector<uint8_t>& frame) {
      constexpr size_t kLayer3 = 4;
      for (auto changes = random() % 3; changes > 0 && frame.size() > kLayer3; --changes) {
        frame[kLayer3 + random() % (frame.size() - kLayer3)] = static_cast<uint8_t>(random());
      }
    };
  }

  // One act of either side, and what follows from it.
  void Turn() {
    const auto channel = static_cast<int32_t>(random() % 30);
    const PriCall call = calls.empty() ? nullptr : calls[random() % calls.size()];
    const auto act = static_cast<uint32_t>(random() % 8);
    if (act < 4) {
      TurnOfPeer(act, channel, call);
    } else {
      TurnOfApplication(act, Channel(channel));
    }
    trunk.Run();
    if (trunk.them.events.size() > 50) {
      trunk.them.events.erase(trunk.them.events.begin(), trunk.them.events.end() - 50);
    }
  }

 private:
  void TurnOfPeer(uint32_t act, int32_t channel, PriCall call) {
    switch (act) {
      case 0:
      case 1:
        calls.push_back(trunk.peer->NewCall());
        trunk.peer->Setup(calls.back(), static_cast<int>(Channel(channel).Timeslot()), "4711", "030123456", 33);
        break;
      case 2:
        trunk.peer->Hangup(call, 16);
        break;
      default:
        trunk.peer->Answer(trunk.PeerEvent(kPriRing).call, trunk.PeerEvent(kPriRing).channel);
    }
  }
  static void TurnOfApplication(uint32_t act, CDevice& device) {
    switch (act) {
      case 4:
        Dial(device, "999", "111");
        break;
      case 5:
        Answer(device);
        break;
      case 6:
        Hangup(device);
        break;
      default:
        Reject(device);
    }
  }

  std::mt19937 random{1};
  std::vector<PriCall> calls;
};

TEST_F(DamagedMessages, ReachNoOtherChannelsAndLeaveTheTrunkWorking) {
  constexpr int kTurns = 6000;
  testing::internal::CaptureStdout();  // libpri names what it finds
  testing::internal::CaptureStderr();
  DamageFrames();
  for (int turn = 0; turn < kTurns; ++turn) {
    Turn();
  }
  trunk.alter = nullptr;
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  const Posted events = application.Take();
  EXPECT_GT(events.size(), size_t{kTurns} / 10) << "too few messages got as far as call control";
  for (const SPosted& posted : events) {
    EXPECT_LT(posted.channel, 120) << "of the other card";
  }
  for (int32_t channel = 120; channel < 150; ++channel) {
    EXPECT_EQ(View(channel).callHandle, nullptr);
  }
  // A trunk that is lost and comes back has every channel free again.
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  application.Take();
  for (int32_t channel = 0; channel < 30; ++channel) {
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY") << channel;
    Offer(static_cast<int>(Channel(channel).Timeslot()));
    EXPECT_EQ(application.Take(), (Posted{{channel, EVENT_INCOMING_CALL, 0}}));
  }
}

}  // namespace
}  // namespace zelk::test
