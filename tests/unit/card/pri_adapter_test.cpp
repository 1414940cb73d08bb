#include "card/pri_adapter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <random>
#include <thread>

#include "pri_pair.h"
#include "runtime/log.h"

namespace zelk {
namespace {

constexpr int kNationalIsdn = 33;

// libpri would print what it thinks of the frames below.
const bool kIsHookInstalled = (InstallPriMessageHook(), true);

// The user side calls the network side on a timeslot.
PriCall Dial(CPriPair& pair, CPriSide& from, int timeslot = 3) {
  const PriCall call = from.controller->NewCall();
  EXPECT_NE(call, nullptr);
  EXPECT_EQ(from.controller->Setup(call, timeslot, "5551234", "5559876", kNationalIsdn), 0);
  pair.Run();
  return call;
}

PriCall RingOf(const CPriSide& side) {
  const SPriEvent* ring = side.Find(kPriRing);
  return ring == nullptr ? nullptr : ring->call;
}

TEST(PriController, BothSidesReportTheirDchannelUp) {
  CPriPair pair;
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriDchannelUp));
  EXPECT_TRUE(pair.network.Has(kPriDchannelUp));
}

TEST(PriController, WritesDuringCreationUnderItsTrunk) {
  CPriSide side(2, 5, 6);
  EXPECT_EQ(side.lastTrunk, 6U);
  ASSERT_FALSE(side.written.empty());
  EXPECT_GE(side.written.front().size(), 5U);
}

TEST(PriController, ARingCarriesChannelNumbersAndItsCall) {
  CPriPair pair;
  pair.Run();
  Dial(pair, pair.user, 17);
  const SPriEvent* ring = pair.network.Find(kPriRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->channel & 0xFF, 17);
  EXPECT_EQ(ring->callingNumber, "5559876");
  EXPECT_EQ(ring->calledNumber, "5551234");
  EXPECT_EQ(ring->redirectingNumber, "");
  EXPECT_TRUE(pair.network.controller->IsCallValid(ring->call));
}

TEST(PriController, ACallIsAnsweredAndAcknowledgedOnce) {
  CPriPair pair;
  pair.Run();
  Dial(pair, pair.user);
  const PriCall call = RingOf(pair.network);
  EXPECT_EQ(pair.network.controller->Proceeding(call, 3), 0);
  EXPECT_EQ(pair.network.controller->Alerting(call, 3), 0);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriProceeding));
  EXPECT_TRUE(pair.user.Has(kPriRinging));
  EXPECT_FALSE(pair.user.Has(kPriAnswer));
  EXPECT_EQ(pair.network.controller->Answer(call, 3), 0);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriAnswer));
  EXPECT_TRUE(pair.network.Has(kPriConnectAck));
}

TEST(PriController, WithoutAnAcknowledgementTheAnswerStaysUnacknowledged) {
  CPriPair pair;
  pair.user.acknowledgesAnswers = false;
  pair.Run();
  Dial(pair, pair.user);
  pair.network.controller->Answer(RingOf(pair.network), 3);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriAnswer));
  EXPECT_FALSE(pair.network.Has(kPriConnectAck));
}

TEST(PriController, TheNetworkCallsToo) {
  CPriPair pair;
  pair.Run();
  Dial(pair, pair.network, 31);
  const SPriEvent* ring = pair.user.Find(kPriRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->channel & 0xFF, 31);
  EXPECT_EQ(pair.user.controller->Answer(ring->call, 31), 0);
  pair.Run();
  EXPECT_TRUE(pair.network.Has(kPriAnswer));
  EXPECT_TRUE(pair.user.Has(kPriConnectAck));
}

TEST(PriController, PartiesOfAnIncomingCall) {
  CPriPair pair;
  pair.Run();
  Dial(pair, pair.network);
  SPriParties parties;
  ASSERT_TRUE(pair.user.controller->Parties(RingOf(pair.user), parties));
  EXPECT_TRUE(parties.remote.valid);
  EXPECT_EQ(parties.remote.digits, "5559876");
  EXPECT_TRUE(parties.called.valid);
  EXPECT_EQ(parties.called.digits, "5551234");
  EXPECT_FALSE(parties.redirecting.valid);
}

TEST(PriController, AHangupCarriesItsCauseAndEndsTheCall) {
  CPriPair pair;
  pair.Run();
  const PriCall call = Dial(pair, pair.user);
  pair.network.controller->Proceeding(RingOf(pair.network), 3);
  EXPECT_EQ(pair.network.controller->Hangup(RingOf(pair.network), 17), 0);
  pair.Run();
  const SPriEvent* request = pair.user.Find(kPriHangupRequest);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->cause, 17);
  EXPECT_EQ(request->call, call);
  EXPECT_EQ(request->hangupCall, call);
  pair.user.controller->Hangup(call, 16);
  pair.Run();
  EXPECT_TRUE(pair.network.Has(kPriHangup));
  pair.network.controller->Hangup(RingOf(pair.network), 16);
  pair.Run();
  EXPECT_TRUE(pair.user.Has(kPriHangupAck));
  EXPECT_FALSE(pair.user.controller->IsCallValid(call));
}

// The SETUP of a call with its channel identification replaced by "any channel" (Q.931, 4.5.13).
PriFrame SetupForAnyChannel(CPriSide& from) {
  from.controller->Setup(from.controller->NewCall(), 3, "5551234", "5559876", kNationalIsdn);
  PriFrame frame = from.written.front();
  from.written.clear();
  const PriFrame named{0x18, 0x03, 0xA9, 0x83, 0x83};
  const PriFrame any{0x18, 0x01, 0xA3};
  const auto place = std::search(frame.begin(), frame.end(), named.begin(), named.end());
  EXPECT_NE(place, frame.end());
  frame.insert(frame.erase(place, place + static_cast<ptrdiff_t>(named.size())), any.begin(), any.end());
  return frame;
}

TEST(PriController, ARingThatNamesNoChannelSaysSo) {
  CPriPair pair;
  pair.Run();
  const PriFrame frame = SetupForAnyChannel(pair.network);
  SPriEvent event;
  ASSERT_TRUE(pair.user.controller->Receive(frame.data(), frame.size(), event));
  EXPECT_EQ(event.code, kPriRing);
  EXPECT_EQ(static_cast<uint16_t>(event.channel), 0xFFFF);
  EXPECT_EQ(pair.user.controller->NeedMoreInfo(event.call, 1), 0);
}

TEST(PriController, EveryOperationRefusesACallThatIsNotItsOwn) {
  CPriPair pair;
  pair.Run();
  const PriCall foreign = Dial(pair, pair.user);
  pair.user.controller->DestroyCall(foreign);
  CPriController& controller = *pair.user.controller;
  for (const PriCall call : {static_cast<PriCall>(nullptr), foreign}) {
    SPriParties parties;
    EXPECT_FALSE(controller.IsCallValid(call));
    EXPECT_FALSE(controller.Parties(call, parties));
    EXPECT_EQ(controller.Setup(call, 1, "1", "2", kNationalIsdn), -1);
    EXPECT_EQ(controller.DestroyCall(call), -1);
    EXPECT_EQ(controller.NeedMoreInfo(call, 1), -1);
    EXPECT_EQ(controller.Proceeding(call, 1), -1);
    EXPECT_EQ(controller.Alerting(call, 1), -1);
    EXPECT_EQ(controller.Answer(call, 1), -1);
    EXPECT_EQ(controller.ConnectAck(call, 1), -1);
    EXPECT_EQ(controller.Hangup(call, 16), -1);
  }
}

TEST(PriController, AnEventOfACallThatIsFreedWithItStillHasItsHandle) {
  CPriPair pair;
  pair.Run();
  const PriCall call = Dial(pair, pair.user);
  pair.network.controller->Hangup(RingOf(pair.network), 44);  // RELEASE COMPLETE
  pair.Run();
  const SPriEvent* hangup = pair.user.Find(kPriHangup);
  ASSERT_NE(hangup, nullptr);
  EXPECT_EQ(hangup->call, call);
  EXPECT_TRUE(pair.user.controller->IsCallValid(call));
  pair.user.controller->Hangup(call, 16);
  EXPECT_FALSE(pair.user.controller->IsCallValid(call));
  const PriCall second = Dial(pair, pair.user);
  EXPECT_NE(second, call);
  pair.user.controller->Hangup(second, 16);
  pair.network.controller->Hangup(pair.network.events.back().call, 44);
  pair.Run();
  const SPriEvent& acknowledge = pair.user.events.back();
  EXPECT_EQ(acknowledge.code, kPriHangupAck);
  EXPECT_EQ(acknowledge.call, second);
  EXPECT_FALSE(pair.user.controller->IsCallValid(second));
}

TEST(PriController, ASecondHangupOfACallThatIsBeingClearedWritesNothingAndSucceeds) {
  CPriPair pair;
  pair.Run();
  const PriCall call = Dial(pair, pair.user);
  pair.network.controller->Proceeding(RingOf(pair.network), 3);
  pair.Run();
  EXPECT_EQ(pair.user.controller->Hangup(call, 16), 0);
  const size_t written = pair.user.written.size();
  EXPECT_EQ(pair.user.controller->Hangup(call, 16), 0);
  EXPECT_EQ(pair.user.written.size(), written);
  EXPECT_TRUE(pair.user.controller->IsCallValid(call));
}

// Its reference is free for the next call then, whose SETUP would else be taken for one of the old call.
TEST(PriController, ACallThatIsClearedBeforeAnythingWasSentForItLeavesNothingBehind) {
  CPriPair pair;
  pair.Run();
  const PriCall caller = Dial(pair, pair.network);
  const PriCall call = RingOf(pair.user);
  ASSERT_TRUE(pair.user.controller->IsCallValid(call));
  pair.network.controller->Hangup(caller, 16);
  pair.Run();
  EXPECT_FALSE(pair.user.controller->IsCallValid(call));
  EXPECT_TRUE(pair.network.Has(kPriHangupAck));
}

// A writer without memory: nothing of that passes through libpri.
class CPoorSide : public CPriSide {
 public:
  using CPriSide::CPriSide;
  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override {
    return isPoor ? throw std::bad_alloc() : CPriSide::OnPriFrame(trunk, frame, length);
  }
  bool isPoor = false;
};

TEST(PriController, AFrameThatMemoryCannotHoldIsLostAndSentAgain) {
  CPoorSide side(2);
  SPriEvent event;
  const uint8_t sabme[] = {0x02, 0x01, 0x7F, 0, 0};
  side.written.clear();
  side.isPoor = true;
  side.controller->Receive(sabme, sizeof sabme, event);
  EXPECT_TRUE(side.written.empty());
  side.isPoor = false;
  side.controller->Receive(sabme, sizeof sabme, event);
  EXPECT_FALSE(side.written.empty());
}

TEST(PriController, LongNumbersAreCutTo31Characters) {
  CPriPair pair;
  pair.Run();
  const std::string digits(40, '7');
  const PriCall call = pair.user.controller->NewCall();
  EXPECT_EQ(pair.user.controller->Setup(call, 1, digits.c_str(), digits.c_str(), kNationalIsdn), 0);
  pair.Run();
  const SPriEvent* ring = pair.network.Find(kPriRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->calledNumber, digits.substr(0, 31));
  EXPECT_EQ(ring->callingNumber, digits.substr(0, 31));
}

TEST(PriController, SetupWithoutACalledNumberFails) {
  CPriSide side(2);
  const PriCall call = side.controller->NewCall();
  EXPECT_LT(side.controller->Setup(call, 1, nullptr, nullptr, kNationalIsdn), 0);
  EXPECT_TRUE(side.controller->IsCallValid(call));
}

TEST(PriController, ATimerIsPendingFromTheStart) {
  const SUnixTime now = UnixNow();
  CPriSide side(2);
  SUnixTime due;
  ASSERT_TRUE(side.controller->NextTimer(due));
  EXPECT_GE(due.seconds, now.seconds);
  EXPECT_LT(due.seconds, now.seconds + 60);
}

// What is logged from its construction to Text().
class CLogText {
 public:
  CLogText() : path((std::filesystem::temp_directory_path() / "zelk-pri-adapter-test.log").string()) {
    Log().Start(path);  // what was pending goes to the file, and the file goes
    Log().Stop();
    std::filesystem::remove(path);
    InstallPriMessageHook();
  }
  ~CLogText() { std::filesystem::remove(path); }
  CLogText(const CLogText&) = delete;
  CLogText& operator=(const CLogText&) = delete;

  std::string Text() const {
    Log().Start(path);
    Log().Stop();
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  const std::string path;
};

// libpri takes them, says of each frame that it does not know how to send it, and never brings layer 2 up.
TEST(PriController, UnusualNodeTypesAreHandedOnAndStayDown) {
  for (const int node : {0, 3, 5, 10}) {
    const CLogText log;
    CPriSide side(node);
    ASSERT_NE(side.controller, nullptr) << node;
    SPriEvent event;
    const uint8_t sabme[] = {0x00, 0x01, 0x7F, 0, 0};
    EXPECT_FALSE(side.controller->Receive(sabme, sizeof sabme, event)) << node;
    EXPECT_TRUE(side.written.empty()) << node;
    const std::string text = log.Text();
    EXPECT_NE(text.find("SABME on a type " + std::to_string(node) + " node"), std::string::npos) << text;
  }
}

TEST(PriController, EverySwitchTypeCanBeReleased) {
  for (int switchType = -1; switchType < 20; ++switchType) {
    CPriSide user(2, switchType);
    CPriSide network(1, switchType);
  }
}

// What happens to a call, a piece at a time.
void PlayScenario(CPriPair& pair, bool byUser, int frames) {
  CPriSide& caller = byUser ? pair.user : pair.network;
  CPriSide& called = byUser ? pair.network : pair.user;
  pair.Run();
  const PriCall call = caller.controller->NewCall();
  caller.controller->Setup(call, 5, "100", "200", kNationalIsdn);
  const auto step = [&](auto action) {
    const int now = std::min(frames, 4);
    frames -= now;
    pair.Run(now);
    action();
  };
  step([&] { called.controller->Proceeding(RingOf(called), 5); });
  step([&] { called.controller->Alerting(RingOf(called), 5); });
  step([&] { called.controller->Answer(RingOf(called), 5); });
  step([&] { caller.controller->Hangup(call, 16); });
  step([&] { called.controller->Hangup(RingOf(called), 16); });
  pair.Run(frames);
}

// Leaks and reads of freed memory are the sanitizer's to find.
TEST(PriController, IsReleasedInEveryStateOfACall) {
  for (const bool byUser : {true, false}) {
    for (int frames = 0; frames < 32; ++frames) {
      CPriPair pair;
      PlayScenario(pair, byUser, frames);
    }
  }
}

TEST(PriController, IsReleasedWithManyCalls) {
  CPriPair pair;
  pair.Run();
  for (int timeslot = 1; timeslot < 32; ++timeslot) {
    if (timeslot != 16) {
      Dial(pair, timeslot % 2 == 0 ? pair.user : pair.network, timeslot);
    }
  }
  EXPECT_TRUE(pair.user.Has(kPriRing));
  EXPECT_TRUE(pair.network.Has(kPriRing));
}

TEST(PriController, ReleaseWritesNothing) {
  CPriPair pair;
  pair.Run();
  Dial(pair, pair.user);
  pair.user.written.clear();
  pair.user.controller.reset();
  EXPECT_TRUE(pair.user.written.empty());
}

TEST(PriController, ShortAndOverlongFramesAreDropped) {
  CPriSide side(2);
  side.written.clear();
  SPriEvent event;
  const std::vector<uint8_t> frame(2000, 0x00);
  for (const size_t length : {size_t{0}, size_t{1}, size_t{4}, size_t{1025}, size_t{2000}}) {
    EXPECT_FALSE(side.controller->Receive(frame.data(), length, event)) << length;
  }
  EXPECT_TRUE(side.written.empty());
}

// Frames of a real call, to be damaged.
std::vector<PriFrame> CallFrames() {
  CPriPair pair;
  std::vector<PriFrame> frames;
  pair.Run();
  const PriCall call = pair.network.controller->NewCall();
  pair.network.controller->Setup(call, 5, "100", "200", kNationalIsdn);
  for (int i = 0; i < 40; ++i) {
    if (!pair.network.written.empty()) {
      frames.push_back(pair.network.written.front());
    }
    if (!pair.Step()) {
      pair.user.controller->Answer(RingOf(pair.user), 5);
    }
  }
  return frames;
}

TEST(PriController, TruncatedFramesDoNoHarm) {
  const std::vector<PriFrame> frames = CallFrames();
  ASSERT_GE(frames.size(), 2U);
  for (const PriFrame& frame : frames) {
    for (size_t length = 0; length <= frame.size(); ++length) {
      CPriPair pair;
      pair.Run();
      SPriEvent event;
      // A copy of its own, so that a read behind the end is seen.
      const PriFrame cut(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(length));
      pair.user.controller->Receive(cut.data(), cut.size(), event);
    }
  }
}

// The same layer 3 message in a frame that is taken whatever the sequence numbers say.
PriFrame AsUnnumbered(const PriFrame& information) {
  PriFrame frame{information[0], information[1], 0x03};
  frame.insert(frame.end(), information.begin() + 4, information.end());
  return frame;
}

PriFrame RandomFrame(std::mt19937& random) {
  PriFrame frame(5 + random() % 295);
  for (uint8_t& byte : frame) {
    byte = static_cast<uint8_t>(random());
  }
  frame[0] = 0x02;
  frame[1] = 0x01;
  return frame;
}

TEST(PriController, DamagedAndRandomFramesDoNoHarm) {
  std::mt19937 random(921);
  const std::vector<PriFrame> frames = CallFrames();
  CPriPair pair;
  pair.Run();
  int rings = 0;
  for (int i = 0; i < 20000; ++i) {
    if (i % 500 == 0) {
      pair.user.controller.reset();
      pair.user.controller = CPriController::Create(pair.user, 0, 2, 5);
    }
    PriFrame frame = random() % 4 == 0 ? RandomFrame(random) : frames[random() % frames.size()];
    if (frame.size() > 6 && random() % 4 != 0) {
      frame = AsUnnumbered(frame);
    }
    for (auto damage = random() % 6; damage > 0; --damage) {
      frame[2 + random() % (frame.size() - 2)] = static_cast<uint8_t>(random());
    }
    SPriEvent event;
    rings += pair.user.controller->Receive(frame.data(), frame.size(), event) && event.code == kPriRing;
    pair.user.written.clear();
  }
  EXPECT_GT(rings, 100) << "too few frames got as far as call control";
  SPriEvent event;
  const uint8_t sabme[] = {0x02, 0x01, 0x7F, 0, 0};
  pair.user.controller->Receive(sabme, sizeof sabme, event);
  EXPECT_FALSE(pair.user.written.empty()) << "the controller no longer answers";
}

TEST(PriController, ControllersMayBeMadeOnSeveralThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> up{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        CPriPair pair;
        pair.Run();
        up += pair.user.Has(kPriDchannelUp);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(up, 200);
}

class CLabelledSide : public CPriSide {
 public:
  CLabelledSide() : CPriSide(2, 5, 1) {}
  uint32_t MessageCard() const override { return 4; }
};

TEST(PriMessageHook, WritesLibprisMessagesToTheLog) {
  const CLogText log;
  {
    CLabelledSide side;
    SPriEvent event;
    const uint8_t xid[] = {0x02, 0x01, 0xAF, 0, 0};
    side.controller->Receive(xid, sizeof xid, event);
  }
  const std::string text = log.Text();
  EXPECT_NE(text.find("  G :Debug Message: Card[4] Link[1]: !! XID frames not supported"), std::string::npos) << text;
}

}  // namespace
}  // namespace zelk
