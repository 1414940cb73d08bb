// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "card_fixture.h"

namespace zelk {
namespace {

TEST_F(Card, AnIncomingCallIsRungAnsweredAndCleared) {
  CFakeCard& peer = FakeNetwork();
  handlers.onCall = [](CCard& self, uint16_t trunk, ECallEvent code, const SPriEvent& event) {
    if (code == CALLEV_RING) {
      EXPECT_EQ(event.calledNumber, "100");
      EXPECT_EQ(event.callingNumber, "200");
      self.Trunk(trunk).controller->Answer(event.call, event.channel);
    } else if (code == CALLEV_CONNECT_ACK) {
      self.Trunk(trunk).controller->Hangup(event.call, 16);
    }
  };
  ASSERT_TRUE(OpenWithHandlers());
  AwaitDchannels();
  peer.OnNetwork([](CPriController& network) { network.Setup(network.NewCall(), 5, "100", "200", 33); }, 1);
  EXPECT_TRUE(handlers.WaitFor(CallEvent(1, 5, CALLEV_RING)));
  EXPECT_TRUE(peer.WaitForNetworkEvent(kPriAnswer));
  const SPriEvent answer = [&] {
    const std::vector<SPriEvent> events = peer.NetworkEvents();
    return *std::find_if(events.begin(), events.end(), [](const SPriEvent& event) { return event.code == kPriAnswer; });
  }();
  peer.OnNetwork([=](CPriController& network) { network.ConnectAck(answer.call, answer.channel); }, 1);
  EXPECT_TRUE(handlers.WaitFor(CallEvent(1, 5, CALLEV_CONNECT_ACK)));
  EXPECT_TRUE(peer.WaitForNetworkEvent(kPriHangupRequest));
}

// Layer 2 asks three times, a second apart, and nobody answers. The card speaks 20 times a second, and a thread that
// waits for a timer wakes ten times.
TEST_F(Card, TheControlThreadSleepsUntilATimerIsDue) {
  constexpr int kMostTurns = 2000;
  CFakeCard& peer = Fake();
  ASSERT_TRUE(OpenWithHandlers());
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x10, 0x01}, 3));
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x10, 0x02}, 3));
  EXPECT_GT(handlers.turns, 0);
  EXPECT_LT(handlers.turns, kMostTurns);
}

TEST_F(Card, AnAnswerIsAcknowledgedExactlyOnce) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  AwaitDchannels();
  {
    CTrunk& trunk = card.Trunk(0);
    const CScopedLock<CRecursiveMutex> held(trunk.lock);
    trunk.controller->Setup(trunk.controller->NewCall(), 7, "1", "2", 33);
  }
  ASSERT_TRUE(peer.WaitForNetworkEvent(kPriRing));
  const std::vector<SPriEvent> events = peer.NetworkEvents();
  const PriCall call =
      std::find_if(events.begin(), events.end(), [](const SPriEvent& event) { return event.code == kPriRing; })->call;
  peer.OnNetwork([=](CPriController& network) { network.Answer(call, 7); });
  EXPECT_TRUE(handlers.WaitFor(CallEvent(0, 7, CALLEV_ANSWER)));
  EXPECT_TRUE(peer.WaitForNetworkEvent(kPriConnectAck));
  // CONNECT ACKNOWLEDGE is message type 0x0F after two address, two control and four layer 3 header bytes.
  const std::vector<Message> all = peer.Messages();
  EXPECT_EQ(std::count_if(all.begin(), all.end(),
                          [](const Message& message) {
                            return message[1] == 0x10 && message.size() > 13 && message[13] == 0x0F;
                          }),
            1);
}

}  // namespace
}  // namespace zelk
