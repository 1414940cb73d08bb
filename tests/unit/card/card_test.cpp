#include "card/card.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "native_cpu_time.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "recording_handlers.h"
#include "runtime/config.h"
#include "support/addresses.h"
#include "support/allocation_probe.h"
#include "support/fake_card.h"

namespace zelk {
namespace {

const SIpv4Address kLocal = Address("127.0.0.1");
const bool kIsHookInstalled = (InstallPriMessageHook(), true);

// A card object and the fake card it opens.
class Card : public testing::Test {
 protected:
  CFakeCard& Fake(CFakeCard::SOptions options = {}) {
    fake = std::make_unique<CFakeCard>(std::move(options));
    EXPECT_TRUE(fake->IsReady());
    return *fake;
  }
  CFakeCard& FakeNetwork() {
    CFakeCard::SOptions options;
    options.playsNetwork = true;
    return Fake(options);
  }
  bool Open() { return card.Open(fake->Address(), 5854, kLocal); }
  bool OpenWithHandlers() {
    const bool isOpen = Open();
    card.SetHandlers(&handlers);
    return isOpen;
  }

  // A side that is up before the other loses what it sends.
  void AwaitDchannels() {
    EXPECT_TRUE(handlers.WaitFor(DchannelUp(0)));
    EXPECT_TRUE(handlers.WaitFor(DchannelUp(1)));
    EXPECT_TRUE(fake->WaitForNetworkEvent(kPriDchannelUp, 2));
  }

  std::unique_ptr<CFakeCard> fake;
  CRecordingHandlers handlers;
  CCard card{3};
};

// The kinds of the messages, frames of the D-channel left out.
std::vector<Message> WithoutFrames(const std::vector<Message>& messages) {
  std::vector<Message> rest;
  std::copy_if(messages.begin(), messages.end(), std::back_inserter(rest),
               [](const Message& message) { return message[1] != 0x10; });
  return rest;
}

TEST_F(Card, OpenSendsTheStartUpMessagesInOrder) {
  CFakeCard& peer = Fake();
  ASSERT_TRUE(Open());
  ASSERT_TRUE(peer.WaitFor({0xFF, 0x05}));
  const std::vector<Message> messages = WithoutFrames(peer.Messages());
  ASSERT_EQ(messages.size(), 5U);
  EXPECT_EQ(messages[0], (Message{0xFF, 0x01}));
  EXPECT_EQ(messages[1], (Message{0xFF, 0x04}));
  EXPECT_EQ(messages[2], (Message{0xFF, 0x12, 1, 1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(messages[3], (Message{0xFF, 0x12, 2, 1, 0, 0, 0, 0, 0}));
  const uint16_t port = card.Audio().LocalPort();
  EXPECT_NE(port, 0);
  EXPECT_EQ(messages[4], (Message{0xFF, 0x05, static_cast<uint8_t>(port), static_cast<uint8_t>(port >> 8), 0xFF}));
}

TEST_F(Card, TheControllersSpeakBeforeTheAudioPortIsTold) {
  CFakeCard& peer = Fake();
  ASSERT_TRUE(Open());
  ASSERT_TRUE(peer.WaitFor({0xFF, 0x05}));
  const std::vector<Message> all = peer.Messages();
  const auto position = [&](const Message& head) {
    return std::find_if(all.begin(), all.end(), [&](const Message& message) { return StartsWith(message, head); }) -
           all.begin();
  };
  EXPECT_LT(position({0xFF, 0x12, 2}), position({0xFF, 0x10, 1}));
  EXPECT_LT(position({0xFF, 0x10, 1}), position({0xFF, 0x10, 2}));
  EXPECT_LT(position({0xFF, 0x10, 2}), position({0xFF, 0x05}));
}

TEST_F(Card, OpenTakesWhatTheCardSaysOfItself) {
  Fake();
  EXPECT_EQ(card.Number(), 3U);
  ASSERT_TRUE(Open());
  EXPECT_TRUE(card.ControllersRunning());
  EXPECT_EQ(card.TrunkCount(), 2U);
  EXPECT_EQ(card.SerialNumber(), 4711U);
  EXPECT_EQ(card.FeatureFlags(), 0xDEADBEEFU);
  EXPECT_EQ(card.FirmwareVersion(), 3);
  EXPECT_EQ(card.FirmwareDate(), "20241130");
  EXPECT_EQ(card.BurnDate(), "13050900");
}

TEST_F(Card, ThePortArgumentIsNotUsed) {
  CFakeCard& peer = Fake();
  EXPECT_TRUE(card.Open(peer.Address(), 1, kLocal));
}

TEST_F(Card, OnlyTheCardsTrunksGetControllers) {
  Fake();
  ASSERT_TRUE(Open());
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(trunk).lock);
    EXPECT_EQ(card.Trunk(trunk).controller != nullptr, trunk < 2) << trunk;
  }
}

TEST_F(Card, ACardThatNeverAnswersIsAskedThreeTimesAndFails) {
  CFakeCard::SOptions options;
  options.answersInformation = false;
  CFakeCard& peer = Fake(options);
  const uint32_t start = TickMs();
  EXPECT_FALSE(Open());
  EXPECT_GE(TickMs() - start, 3000U);
  EXPECT_LT(TickMs() - start, 8000U);
  EXPECT_EQ(peer.Count({0xFF, 0x01}), 3U);
  EXPECT_EQ(peer.Count({0xFF, 0x04}), 0U);
  EXPECT_FALSE(card.ControllersRunning());
  EXPECT_EQ(card.SerialNumber(), 0U);
}

TEST_F(Card, BadInformationEndsTheWaitAndFails) {
  CFakeCard::SOptions options;
  options.sendsBadInformation = true;
  CFakeCard& peer = Fake(options);
  EXPECT_FALSE(Open());
  EXPECT_EQ(peer.Count({0xFF, 0x01}), 1U);
}

TEST_F(Card, ATrunkCountThatCannotBeFails) {
  for (const uint8_t trunks : {uint8_t{0}, uint8_t{9}, uint8_t{255}}) {
    CFakeCard::SOptions options;
    options.trunkCount = trunks;
    Fake(options);
    EXPECT_FALSE(Open()) << int{trunks};
    fake.reset();
  }
}

TEST_F(Card, OpenFailsWithoutAPeerOrAnAdapter) {
  Fake();
  EXPECT_FALSE(card.Open(Address("127.0.0.77"), 5854, kLocal));
  EXPECT_FALSE(card.Open(fake->Address(), 5854, Address("192.0.2.7")));
  EXPECT_TRUE(Open());
}

TEST_F(Card, CloseReleasesEverythingAndMayBeRepeated) {
  Fake();
  card.Close();
  ASSERT_TRUE(Open());
  card.Close();
  EXPECT_FALSE(card.ControllersRunning());
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(trunk).lock);
    EXPECT_EQ(card.Trunk(trunk).controller, nullptr);
  }
  card.Close();
  const uint8_t frame[5] = {};
  EXPECT_TRUE(card.SendDchannelFrame(0, frame, 5));
  card.SendTrunkConfiguration(0);
  card.SendRegisterRead(0, 1);
}

TEST_F(Card, CanBeOpenedAgainAndAgain) {
  Fake();
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(Open());
    card.Close();
  }
  EXPECT_EQ(fake->Connections(), 5);
}

TEST_F(Card, SendsRegisterReadsAndConfigurations) {
  CFakeCard& peer = Fake();
  ASSERT_TRUE(Open());
  card.SendRegisterRead(1, 0x1006);
  card.SendTrunkConfiguration(UINT32_MAX);
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x02, 2, 0x06, 0x10, 0xFF}));
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x12, 0, 1, 0, 0, 0, 0, 0}));
}

TEST_F(Card, ReportsWhatTheControlStreamSays) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  CFakeCard& peer = Fake(options);
  ASSERT_TRUE(OpenWithHandlers());
  peer.Send({0xFF, 0x07, 0, 1, 0xFF, 0x02, 1, 0x06, 0x10, 0x5A, 0x11, 0, 3});
  EXPECT_TRUE(handlers.WaitFor(LineStatus(0, 0)));
  EXPECT_TRUE(handlers.WaitFor(LineStatus(1, 1)));
  EXPECT_TRUE(handlers.WaitFor(Register(1, 0x1006, 90)));
  EXPECT_TRUE(handlers.WaitFor(HdlcError(0, 3)));
}

TEST_F(Card, TimersRunWhileTheCardIsSilent) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  CFakeCard& peer = Fake(options);
  ASSERT_TRUE(Open());
  // One byte, so that the card counts as lost only some time after layer 2 repeats its unanswered establishment (1 s).
  SleepMs(500);
  peer.Send({0x00});
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x10, 1, 3, 0, 0x00, 0x01, 0x7F}, 2));
  EXPECT_TRUE(peer.WaitFor({0xFF, 0x10, 2, 3, 0, 0x00, 0x01, 0x7F}, 2));
}

TEST_F(Card, ANewGenerationKnowsNothingOfTheLinesBeforeTheFirstStatus) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  CFakeCard& peer = Fake(options);
  ASSERT_TRUE(OpenWithHandlers());
  peer.Send({0xFF, 0x07, 0, 1});
  ASSERT_TRUE(handlers.WaitFor(LineStatus(0, 0)));
  ASSERT_TRUE(handlers.WaitFor(LineStatus(1, 1)));
  const CStopFlag cancel;
  ASSERT_TRUE(card.Reopen(peer.Address(), kLocal, cancel));
  EXPECT_EQ(card.Trunk(0).lineStatus, 3);
  EXPECT_EQ(card.Trunk(1).lineStatus, 3);
  // An error of a line that may be out of service is not reported, one after its status is.
  peer.Send({0xFF, 0x11, 0, 4, 0xFF, 0x07, 0, 0, 0xFF, 0x11, 0, 3});
  EXPECT_TRUE(handlers.WaitFor(HdlcError(0, 3)));
  EXPECT_EQ(handlers.Count(HdlcError(0, 4)), 0U);
}

TEST_F(Card, ASilentCardIsDownAfterASecondAndOnce) {
  CFakeCard::SOptions options;
  options.keepsTalking = false;
  Fake(options);
  const uint32_t start = TickMs();
  ASSERT_TRUE(OpenWithHandlers());
  // The first byte of the running card ends the wait that has no limit.
  fake->Send({0x00});
  ASSERT_TRUE(handlers.WaitFor(CardDown()));
  EXPECT_GE(TickMs() - start, 1000U);
  EXPECT_TRUE(card.ControllersRunning());
  EXPECT_FALSE(handlers.WaitFor(CardDown(), 2, 300));
}

TEST_F(Card, AResetConnectionIsDownAfterASecond) {
  Fake();
  ASSERT_TRUE(OpenWithHandlers());
  fake->Send({0xFF, 0x02, 1, 2, 3, 4});
  ASSERT_TRUE(handlers.WaitFor(Register(1, 0x302, 4)));
  fake->ResetPeer();
  EXPECT_TRUE(handlers.WaitFor(CardDown()));
}

TEST_F(Card, APeerThatClosesIsNotReportedAndBurnsNoCpu) {
  Fake();
  ASSERT_TRUE(OpenWithHandlers());
  fake->Send({0xFF, 0x02, 1, 2, 3, 4});
  ASSERT_TRUE(handlers.WaitFor(Register(1, 0x302, 4)));
  fake->ClosePeer();
  const double before = ProcessCpuSeconds();
  EXPECT_FALSE(handlers.WaitFor(CardDown(), 1, 1500));
  EXPECT_LT(ProcessCpuSeconds() - before, 0.5);
  const uint32_t start = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - start, 2500U);
}

TEST_F(Card, TheDchannelComesUpBothWays) {
  FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  AwaitDchannels();
}

TEST_F(Card, ADchannelThatCameUpBeforeTheHandlersIsReportedOnceByTheControlThread) {
  FakeNetwork();
  std::atomic<int> onOurThread{0};
  handlers.onDchannelUp = [&, us = std::this_thread::get_id()](uint32_t) {
    onOurThread += std::this_thread::get_id() == us ? 1 : 0;
  };
  ASSERT_TRUE(Open());
  const auto isUp = [&](uint32_t trunk) {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(trunk).lock);
    return card.Trunk(trunk).isDchannelUp;
  };
  const uint32_t start = TickMs();
  while (!(isUp(0) && isUp(1)) && TickMs() - start < 10000) {
    SleepMs(1);
  }
  card.SetHandlers(&handlers);
  EXPECT_TRUE(handlers.WaitFor(DchannelUp(0)));
  EXPECT_TRUE(handlers.WaitFor(DchannelUp(1)));
  card.Close();
  EXPECT_EQ(handlers.Count(DchannelUp(0)), 1U);
  EXPECT_EQ(handlers.Count(DchannelUp(1)), 1U);
  EXPECT_EQ(onOurThread, 0);
}

// False when it takes longer than anything here may; the action is let finish all the same.
bool ComesBack(const std::function<void()>& action, const std::function<void()>& release) {
  std::future<void> isDone = std::async(std::launch::async, action);
  const bool comesBack = isDone.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  release();
  return comesBack;
}

TEST_F(Card, HandlersAreTakenAwayAndGivenWhileATrunkIsHeld) {
  FakeNetwork();
  ASSERT_TRUE(Open());
  CRecursiveMutex& lock = card.Trunk(0).lock;
  lock.Lock();
  EXPECT_TRUE(ComesBack(
      [&] {
        card.SetHandlers(&handlers);
        card.SetHandlers(nullptr);
      },
      [&] { lock.Unlock(); }));
}

// In a re-open nothing is held while the application is told: the card can be closed meanwhile, and the re-open does
// not touch it any more.
TEST_F(Card, CanBeClosedWhileAReopenTellsTheHandlers) {
  FakeNetwork();
  CStopFlag caller;
  handlers.SetOnReopening([&](const CStopFlag& told) {
    EXPECT_EQ(&told, &caller);
    CEvent mayReturn;
    EXPECT_TRUE(ComesBack([&] { card.Close(); }, [] {}));
    caller.Set();
  });
  ASSERT_TRUE(OpenWithHandlers());
  EXPECT_FALSE(card.Reopen(fake->Address(), kLocal, caller));
  EXPECT_FALSE(card.ControllersRunning());
  EXPECT_EQ(fake->Connections(), 1);
  handlers.SetOnReopening(nullptr);
  EXPECT_TRUE(Open());
}

// Every step of an open in turn finds no memory: the card is open and works, or it is closed as after any failure.
TEST_F(Card, AnOpenWithoutMemoryFailsAndLeavesNoSerialNumber) {
  CFakeCard::SOptions options;
  options.trunkCount = 1;
  Fake(options);
  // A path that takes memory each time it is asked for, which is also when the trunks are set up.
  Config().Read("a/path/that/is/too/long/to/be/kept/in/place.ini");
  bool isOpen = false;
  size_t opened = 0;
  support::ForEachFailingAllocation([&] { isOpen = Open(); },
                                    [&](bool failed) {
                                      EXPECT_TRUE(isOpen || failed);
                                      EXPECT_EQ(card.ControllersRunning(), isOpen);
                                      EXPECT_EQ(card.SerialNumber(), isOpen ? 4711U : 0U);
                                      opened += isOpen ? 1 : 0;
                                      card.Close();
                                    });
  EXPECT_TRUE(fake->WaitFor({0xFF, 0x04}, opened + 1)) << "none failed after the card's answer";
  Config().Read("");
}

TEST_F(Card, AReopenWithoutMemoryFailsAndKeepsTheSerialNumber) {
  CFakeCard::SOptions options;
  options.trunkCount = 1;
  Fake(options);
  ASSERT_TRUE(OpenWithHandlers());
  const CStopFlag caller;
  bool isOpen = false;
  support::ForEachFailingAllocation([&] { isOpen = card.Reopen(fake->Address(), kLocal, caller); },
                                    [&](bool failed) {
                                      EXPECT_TRUE(isOpen || failed);
                                      EXPECT_EQ(card.ControllersRunning(), isOpen);
                                      EXPECT_EQ(card.SerialNumber(), 4711U);
                                    });
  EXPECT_TRUE(card.ControllersRunning());
}

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

TEST_F(Card, ClosesWhileTheCardFloodsIt) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  std::atomic<bool> stop{false};
  std::thread flood([&] {
    Message noise;
    for (int i = 0; i < 400; ++i) {
      const Message frame{
          0xFF, 0x10, static_cast<uint8_t>(1 + i % 2), 5, 0, 0x02, 0x01, 0x7F, 0, 0, 0xFF, 0x11, 0, 3, 0xFF, 0x02, 0, 1,
          2,    3};
      noise.insert(noise.end(), frame.begin(), frame.end());
    }
    while (!stop) {
      peer.Send(noise);
      SleepMs(1);
    }
  });
  EXPECT_TRUE(handlers.WaitFor(Register(0, 0x201, 3), 100));
  const uint32_t start = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - start, 3000U);
  stop = true;
  flood.join();
  const size_t reported = handlers.Seen().size();
  SleepMs(50);
  EXPECT_EQ(handlers.Seen().size(), reported) << "a closed card still reports";
}

TEST_F(Card, ApplicationThreadsMayUseTheTrunkWhileItIsReopened) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  std::atomic<bool> stop{false};
  std::thread application([&] {
    while (!stop) {
      CTrunk& trunk = card.Trunk(0);
      const CScopedLock<CRecursiveMutex> held(trunk.lock);
      if (trunk.controller != nullptr) {
        const PriCall call = trunk.controller->NewCall();
        trunk.controller->Setup(call, 3, "1", "2", 33);
        trunk.controller->Hangup(call, 16);
      }
      card.SendTrunkConfiguration(0);
    }
  });
  const CStopFlag cancel;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(card.Reopen(peer.Address(), kLocal, cancel));
  }
  stop = true;
  application.join();
}

TEST_F(Card, AReopenTellsTheHandlersAndTheControllersAreGoneByThen) {
  CFakeCard& peer = FakeNetwork();
  ASSERT_TRUE(OpenWithHandlers());
  ASSERT_TRUE(handlers.WaitFor(DchannelUp(0)));
  ASSERT_TRUE(handlers.WaitFor(DchannelUp(1)));
  const CStopFlag cancel;
  ASSERT_TRUE(card.Reopen(peer.Address(), kLocal, cancel));
  EXPECT_EQ(handlers.Count(Reopening()), 1U);
  EXPECT_EQ(handlers.Count(CardUp()), 1U);
  EXPECT_TRUE(handlers.WaitFor(DchannelUp(0), 2));
  EXPECT_EQ(peer.Connections(), 2);
}

TEST_F(Card, AFailedReopenKeepsTheSerialNumber) {
  Fake();
  ASSERT_TRUE(OpenWithHandlers());
  const CStopFlag cancel;
  EXPECT_FALSE(card.Reopen(Address("127.0.0.77"), kLocal, cancel));
  EXPECT_EQ(card.SerialNumber(), 4711U);
  EXPECT_FALSE(card.ControllersRunning());
  EXPECT_TRUE(card.Reopen(fake->Address(), kLocal, cancel));
  EXPECT_EQ(handlers.Count(Reopening()), 2U) << "a channel may have a call of before still";
}

TEST_F(Card, ACancelledReopenEndsEarly) {
  CFakeCard::SOptions options;
  options.answersInformation = false;
  Fake(options);
  CStopFlag cancel;
  std::thread canceller([&] {
    EXPECT_TRUE(fake->WaitFor({0xFF, 0x01}));
    cancel.Set();
  });
  const uint32_t start = TickMs();
  EXPECT_FALSE(card.Reopen(fake->Address(), kLocal, cancel));
  EXPECT_LT(TickMs() - start, 900U);
  canceller.join();
  EXPECT_FALSE(card.Reopen(fake->Address(), kLocal, cancel));
  EXPECT_EQ(fake->Connections(), 1) << "nothing is opened after the cancellation";
}

// A callback that does not return must not hold the shut-down for ever, and its thread ends cleanly later on.
TEST_F(Card, ACallbackThatHangsDoesNotHangTheClose) {
  FakeNetwork();
  CEvent mayReturn;
  CEvent isInside;
  handlers.onDchannelUp = [&](uint32_t trunk) {
    if (trunk == 0) {
      isInside.Set();
      mayReturn.Wait();
    }
  };
  card.SetHandlers(&handlers);
  ASSERT_TRUE(Open());
  isInside.Wait();
  const uint32_t start = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - start, 15000U);
  const uint32_t again = TickMs();
  card.Close();
  EXPECT_LT(TickMs() - again, 2000U) << "a closed card has nothing to wait for";
  mayReturn.Set();
  const auto isReleased = [&] {
    const CScopedLock<CRecursiveMutex> held(card.Trunk(0).lock);
    return card.Trunk(0).controller == nullptr;
  };
  while (!isReleased() && TickMs() - start < 30000) {
    SleepMs(1);
  }
  EXPECT_TRUE(isReleased());
  handlers.onDchannelUp = nullptr;
  EXPECT_TRUE(Open());
}

TEST_F(Card, DefaultsAreTakenForAllTrunks) {
  card.SetTrunkDefaults(6, 1001, 40);
  for (uint32_t trunk = 0; trunk < kMaxTrunks; ++trunk) {
    EXPECT_EQ(card.Trunk(trunk).switchType, 6);
    EXPECT_EQ(card.Trunk(trunk).nodeType, 10);
    EXPECT_EQ(card.Trunk(trunk).numberType, 40);
  }
}

TEST_F(Card, AnOpenStartsEveryTrunkAsAUserOfEuroIsdn) {
  Fake();
  card.SetTrunkDefaults(6, 1001, 40);
  ASSERT_TRUE(Open());
  for (uint32_t trunk = 2; trunk < kMaxTrunks; ++trunk) {
    EXPECT_EQ(card.Trunk(trunk).switchType, 5) << "no section is read for a position without a trunk";
    EXPECT_EQ(card.Trunk(trunk).nodeType, 2);
  }
}

}  // namespace
}  // namespace zelk
