// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "audio_fakes.h"
#include "audio_stream_fixture.h"
#include "native_thread_watch.h"
#include "platform/event.h"

// Audio threads that a callback keeps beyond their bounded join, into the next generation and beyond the stream itself.
namespace zelk {
namespace {

using namespace audiotest;

// Keeps the first thread that comes with one kind of call until it is let go, and counts what that thread still calls.
class CHoldingHook : public CIdleHook {
 public:
  explicit CHoldingHook(EMediaCall heldCall) : kind(heldCall) {}

  bool EndsPlay(uint32_t trunk, uint32_t timeslot) override {
    CIdleHook::EndsPlay(trunk, timeslot);
    return true;
  }
  void OnCall(EMediaCall call) override {
    if (std::this_thread::get_id() == held.load())
      ++callsOfHeld;
    else
      ++callsOfOthers;
    if (call == kind && !taken.exchange(true)) {
      held = std::this_thread::get_id();
      end = std::make_unique<CThreadEnd>();
      entered.Set();
      leave.Wait();
      hasLeft = true;
    }
  }

  // Until the pacer has filled this number of blocks of every one of a trunk's timeslots.
  bool WaitFilled(int blocks) const {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (callsOfOthers < blocks * 32 * 2 && std::chrono::steady_clock::now() < limit)
      std::this_thread::yield();
    return callsOfOthers >= blocks * 32 * 2;
  }
  void LetGo() { leave.Set(); }
  // Lets the thread go and waits for its end; the number of calls that it made on its way.
  int CallsOnTheWayOut() {
    LetGo();
    EXPECT_TRUE(end->WaitFor(kPatienceMs));
    EXPECT_TRUE(hasLeft);
    return callsOfHeld;
  }

  CEvent entered;
  std::atomic<int> callsOfOthers{0};

 private:
  const EMediaCall kind;
  std::atomic<bool> taken{false};
  std::atomic<std::thread::id> held{};
  std::unique_ptr<CThreadEnd> end;
  CEvent leave;
  std::atomic<bool> hasLeft{false};  // and uses nothing of this any more
  std::atomic<int> callsOfHeld{0};
};

class LateThreads : public CAudioStreamTest {
 protected:
  // However a test ends, the threads go before what they call.
  void TearDown() override {
    if (holding != nullptr)
      holding->LetGo();
    stream.RequestStop();
    stream.CloseSocket();
    stream.JoinReceiver(kPatienceMs);
    stream.JoinPacer(kPatienceMs);
  }

  void Hold(EMediaCall kind) {
    holding = std::make_unique<CHoldingHook>(kind);
    stream.SetHook(holding.get());
  }

  // What a card's close does when a thread does not come back.
  void CloseWithout(bool receiverEnds, bool pacerEnds) {
    stream.RequestStop();
    stream.CloseSocket();
    EXPECT_EQ(stream.JoinReceiver(receiverEnds ? kPatienceMs : 10), receiverEnds);
    EXPECT_EQ(stream.JoinPacer(pacerEnds ? kPatienceMs : 10), pacerEnds);
    stream.FreeBuffers();
  }

  void ExpectNothingMoreOfAPacerHeldIn(EMediaCall kind) {
    Hold(kind);
    Open(1, 8);
    for (uint32_t packet = 1; packet <= 13; ++packet)  // three blocks each way
      Exchange(MakePacket(packet, packet == 1 ? 5 : 0, LengthOf(1, 40)));
    ASSERT_TRUE(holding->entered.WaitFor(kPatienceMs));
    CloseWithout(true, false);
    Open(1, 8);
    const int before = holding->callsOfOthers;
    EXPECT_EQ(holding->CallsOnTheWayOut(), 0);
    // The next generation's pacer works beside it.
    Exchange(MakePacket(1, 5, LengthOf(1, 40)));
    Close();
    EXPECT_GE(holding->callsOfOthers, before);
  }

  std::unique_ptr<CHoldingHook> holding;
};

TEST_F(LateThreads, APacerHeldInThePlayCallbackOverACloseFillsNothingMore) {
  ExpectNothingMoreOfAPacerHeldIn(EMediaCall::kFillBlock);
}

TEST_F(LateThreads, APacerHeldInTheMarkQueryOverACloseFillsNothingMore) {
  ExpectNothingMoreOfAPacerHeldIn(EMediaCall::kEndsPlay);
}

TEST_F(LateThreads, APacerHeldInARecordCallOverACloseDeliversNothingMore) {
  ExpectNothingMoreOfAPacerHeldIn(EMediaCall::kBlockReceived);
}

// The loss asks for 46 packets; the marks of 32 timeslots are reported before the first of them is sent.
TEST_F(LateThreads, AReceiveThreadHeldOverACloseUsesNoNumber) {
  Hold(EMediaCall::kMarkSent);
  Open(1, 2);
  ASSERT_TRUE(holding->WaitFilled(2));
  uint32_t sent = 0;
  for (uint32_t packet = 1; packet <= 4; ++packet)
    EXPECT_EQ(SequenceOf(Exchange(MakePacket(packet, packet == 1 ? 5 : 0, LengthOf(1, 40)))), sent++);
  card.Send(port, MakePacket(100, 50, LengthOf(1, 40)));
  ASSERT_TRUE(holding->entered.WaitFor(kPatienceMs));
  CloseWithout(false, true);
  EXPECT_TRUE(card.NothingWaits());
  Open(1, 2);
  EXPECT_EQ(SequenceOf(Exchange(MakePacket(1, 5, LengthOf(1, 40)))), sent++);
  EXPECT_EQ(holding->CallsOnTheWayOut(), 0);
  EXPECT_EQ(SequenceOf(Exchange(MakePacket(2, 0, LengthOf(1, 40)))), sent);
  EXPECT_TRUE(card.NothingWaits());
  Close();
}

TEST_F(LateThreads, ThreadsThatOutliveTheStreamItselfCallNothingMore) {
  Hold(EMediaCall::kFillBlock);
  auto own = std::make_unique<CAudioStream>(notice);
  own->ResetChannels(SDtmfSettings());
  own->SetHook(holding.get());
  ASSERT_TRUE(own->OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 1, 4));
  ASSERT_TRUE(own->StartPacer());
  ASSERT_TRUE(holding->entered.WaitFor(kPatienceMs));
  own->RequestStop();
  own->CloseSocket();
  EXPECT_FALSE(own->JoinPacer(10));
  own->FreeBuffers();
  own.reset();
  EXPECT_EQ(holding->CallsOnTheWayOut(), 0);
}

// Its call of PLAY_DONE comes back late; the card goes on meanwhile, and what it sent waits in the socket.
TEST_F(LateThreads, AStalledReceiveThreadLosesNothingOfACardThatGoesOn) {
  Hold(EMediaCall::kMarkSent);
  Open(1, 2);
  ASSERT_TRUE(holding->WaitFilled(2));
  uint32_t sent = 0;
  for (uint32_t packet = 1; packet <= 4; ++packet)
    EXPECT_EQ(SequenceOf(Exchange(MakePacket(packet, packet == 1 ? 5 : 0, LengthOf(1, 40)))), sent++);
  constexpr uint32_t kWaiting = 60;
  for (uint32_t packet = 5; packet < 5 + kWaiting; ++packet)
    card.Send(port, MakePacket(packet, 0, LengthOf(1, 40)));
  ASSERT_TRUE(holding->entered.WaitFor(kPatienceMs));
  EXPECT_TRUE(card.NothingWaits());
  holding->LetGo();
  for (uint32_t packet = 0; packet < kWaiting; ++packet)
    ASSERT_EQ(SequenceOf(card.Receive()), sent++);
  EXPECT_TRUE(notice.Lines().empty());
  Close();
}

TEST_F(LateThreads, TheReceiveThreadHasThePriorityThatTheSystemLetsItHave) {
  class CPriorityHook : public CIdleHook {
   public:
    bool EndsPlay(uint32_t, uint32_t) override {
      pacerIsRaised = OwnPriorityIsRaised();
      if (++queries == 2 * 32)
        filled.Set();
      return true;
    }
    void OnMarkSent(uint32_t, uint32_t) override {
      receiverIsRaised = OwnPriorityIsRaised();
      seen.Set();
    }
    int queries = 0;
    CEvent filled;
    std::atomic<bool> pacerIsRaised{true};
    std::atomic<bool> receiverIsRaised{false};
    CEvent seen;
  } watching;
  stream.SetHook(&watching);
  Open(1, 2);
  ASSERT_TRUE(watching.filled.WaitFor(kPatienceMs));
  for (uint32_t packet = 1; packet <= 5; ++packet)
    Exchange(MakePacket(packet, packet == 1 ? 5 : 0, LengthOf(1, 40)));
  ASSERT_TRUE(watching.seen.WaitFor(kPatienceMs));
  Close();
  EXPECT_TRUE(watching.receiverIsRaised);
  EXPECT_FALSE(watching.pacerIsRaised);
}

}  // namespace
}  // namespace zelk
