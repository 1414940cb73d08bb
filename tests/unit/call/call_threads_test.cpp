// SPDX-License-Identifier: GPL-2.0-only

// Applications dial and hang up while the network hangs up and trunks and cards come and go.
#include <atomic>
#include <thread>

#include "call/call_operations.h"
#include "operations_fixture.h"

namespace zelk::test {
namespace {

class CallThreads : public COperationsFixture {
 protected:
  void StartApplication(int32_t channel) {
    threads.emplace_back([this, channel] {
      while (!stop) {
        dialled += Dial(Channel(channel), "1", "2") ? 1 : 0;
        Info(channel, "CHANNELSTATE");
        Answer(Channel(channel));
        Hangup(Channel(channel));
        Reject(Channel(channel));
      }
    });
  }
  void StartLosingCards() {
    threads.emplace_back([this] {
      while (!stop) {
        firstHandlers.OnCardDown(caller);
      }
    });
  }
  void Join() {
    stop = true;
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  // What the control thread does, with the trunk's lock held: a trunk that comes or goes, and a hang-up.
  void Control(int turn) {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    turn % 2 == 0 ? firstHandlers.OnDchannelUp(0, caller) : firstHandlers.OnDchannelDown(0, caller);
    SPriEvent event = OfCall(View(turn % 4).callHandle);
    event.cause = 16;
    Raise(static_cast<uint16_t>(turn % 4 + 1), turn % 3 == 0 ? kPriHangup : kPriHangupRequest, event);
    trunk->us.written.clear();
  }

  std::atomic<uint32_t> dialled{0};

 private:
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
};

TEST_F(CallThreads, DialHangupAndLossesAtTheSameTimeNeitherRaceNorLock) {
  JoinTrunk(kUser);
  application.reaction = [this](const SPosted& posted) {
    if (posted.event == EVENT_INCOMING_CALL || posted.event == EVENT_DISCONNECTED) {
      Hangup(Channel(posted.channel));
    }
  };
  for (int32_t channel = 0; channel < 4; ++channel) {
    StartApplication(channel);
  }
  StartLosingCards();
  for (int turn = 0; turn < 200 || dialled < 200; ++turn) {
    Control(turn);
  }
  Join();
  application.reaction = nullptr;
  // Whatever was under way, the loss of the trunk ends it, and the channels and their neighbours are as new.
  firstHandlers.OnDchannelUp(0, caller);
  firstHandlers.OnDchannelDown(0, caller);
  firstHandlers.OnDchannelUp(0, caller);
  for (int32_t channel = 0; channel < 30; ++channel) {
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "READY") << channel;
    EXPECT_FALSE(View(channel).connected) << channel;
    EXPECT_EQ(Info(channel, "DLI"), "") << channel;
  }
  application.Take();
  trunk->us.written.clear();
  EXPECT_TRUE(Dial(Channel(0), "1", "2"));
}

}  // namespace
}  // namespace zelk::test
