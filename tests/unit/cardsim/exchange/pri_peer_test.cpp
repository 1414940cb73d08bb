// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/pri_peer.h"

#include <gtest/gtest.h>

#include <deque>
#include <utility>
#include <vector>

namespace cardsim {
namespace {

constexpr int kRing = 5;
constexpr int kHangupRequest = 15;
constexpr int kEuroIsdn = 5;
constexpr std::uint8_t kConnect = 0x07;

// An exchange and a user on one line.
class PriPeer : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(exchange.Start());
    ASSERT_TRUE(user.Start());
    Pass();
  }

  // What either side sends, until nobody sends any more.
  void Pass() {
    while (!line.empty()) {
      const auto [toUser, frame] = line.front();
      line.pop_front();
      (toUser ? user : exchange).Receive(frame);
    }
  }

  // The last event of a kind; without a call when there was none.
  static SPriEvent Last(const std::vector<SPriEvent>& events, int code) {
    SPriEvent last;
    for (const SPriEvent& event : events) {
      last = event.code == code ? event : last;
    }
    return last;
  }

  CPriPeer::Write To(bool toUser) {
    return [this, toUser](ByteView frame) { line.emplace_back(toUser, Bytes(frame.begin(), frame.end())); };
  }

  // A call whose caller sends CONNECT, and whose far end hangs up then.
  void CallerConnects(bool isAcknowledged) {
    q931_call* const dialled = user.Setup({1, true, "700", "100", 0x21, "", 0});
    ASSERT_NE(dialled, nullptr);
    Pass();
    q931_call* const offered = Last(ofExchange, kRing).call;
    ASSERT_NE(offered, nullptr);
    ASSERT_TRUE(user.SendForCall(dialled, kConnect, {}));
    Pass();
    if (isAcknowledged) {
      EXPECT_TRUE(exchange.ConnectAcknowledge(offered));
      Pass();
    }
    EXPECT_TRUE(exchange.Hangup(offered, 16));
    Pass();
    ASSERT_EQ(Last(ofUser, kHangupRequest).call, dialled);
    user.Hangup(dialled, 16);  // RELEASE
    Pass();
    exchange.Hangup(offered, 16);  // and RELEASE COMPLETE
    Pass();
  }

  std::deque<std::pair<bool, Bytes>> line;
  std::vector<SPriEvent> ofExchange;
  std::vector<SPriEvent> ofUser;
  CPriPeer exchange{{false, kEuroIsdn}, To(true), [this](const SPriEvent& event) { ofExchange.push_back(event); }};
  CPriPeer user{{true, kEuroIsdn}, To(false), [this](const SPriEvent& event) { ofUser.push_back(event); }};
};

// libpri takes a CONNECT for a call that nobody has answered as if somebody had, and would neither send the DISCONNECT
// of such a call nor wait for an answer.
TEST_F(PriPeer, ACallThatItsCallerConnectedIsClearedAsAnyOther) {
  for (const bool isAcknowledged : {false, true}) {
    CallerConnects(isAcknowledged);
    EXPECT_TRUE(exchange.HeldCalls().empty());
    EXPECT_TRUE(user.HeldCalls().empty());
  }
}

TEST_F(PriPeer, TellsTheCallsThatItHolds) {
  EXPECT_TRUE(exchange.HeldCalls().empty());
  q931_call* const dialled = user.Setup({1, true, "700", "100", 0x21, "", 0});
  Pass();
  const std::vector<SHeldCall> held = exchange.HeldCalls();
  ASSERT_EQ(held.size(), 1U);
  EXPECT_EQ(held[0].reference & 0x7FFF, user.Reference(dialled) & 0x7FFF);
  EXPECT_EQ(held[0].state, 6);  // call present
}

}  // namespace
}  // namespace cardsim
