// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <mutex>

#include "call_fixture.h"

// Callbacks that do not return: they hold the thread that they run on, and nobody else for long.
namespace {

using cardsim::Call;
using cardsim::SAnswerPlan;
using namespace std::chrono_literals;

// Where a callback waits. It is never destroyed: a thread that nobody has let go still stands here when the process
// ends.
class CHold {
 public:
  // From now on callbacks of this kind wait.
  void Close(uint32_t callback, int32_t param) {
    const std::lock_guard<std::mutex> held(mutex);
    closedFor = callback;
    closedParam = param;
    isClosed = true;
  }
  void Open() {
    const std::lock_guard<std::mutex> held(mutex);
    isClosed = false;
    changed.notify_all();
  }
  void Pass(uint32_t callback, int32_t param) {
    std::unique_lock<std::mutex> held(mutex);
    if (!isClosed || callback != closedFor || (param != closedParam && closedParam != kAnyParam)) {
      return;
    }
    ++waiting;
    changed.notify_all();
    changed.wait(held, [this] { return !isClosed; });
    --waiting;
    changed.notify_all();
  }
  bool WaitReached(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> held(mutex);
    return changed.wait_for(held, timeout, [this] { return waiting > 0; });
  }
  bool WaitEmpty(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> held(mutex);
    return changed.wait_for(held, timeout, [this] { return waiting == 0; });
  }

  static constexpr int32_t kAnyParam = -1;

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool isClosed = false;
  uint32_t closedFor = 0;
  int32_t closedParam = 0;
  int waiting = 0;
};

constexpr uint32_t kPlayCallback = 1;
constexpr uint32_t kRecordCallback = 2;

class CBlockedCallbackTest;

// A place where callbacks arise, and what makes one come.
struct SPlace {
  const char* name;
  uint32_t callback;
  int32_t param;
  void (*cause)(CBlockedCallbackTest& test);
  bool isNetworkSide = false;
};
void PrintTo(const SPlace& place, std::ostream* out) {
  *out << place.name;
}

class CBlockedCallbackTest : public CCallTest {
 public:
  // The waits that a shut-down is made of, for one card: 3 s for the listener, 3 s for the trunks' locks, 3 s for each
  // of three threads.
  static constexpr std::chrono::seconds kAllWaits{25};

  void StartWithHold(const SPlace& place, const std::vector<int>& trunksOfCards = {1}) {
    cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks(trunksOfCards);
    config.cards[0].roles[0].userSide = place.isNetworkSide;
    sim = std::make_unique<cardsim::CSimulator>(config);
    sim->Start();
    app = std::make_unique<support::CApplication>(place.isNetworkSide ? "[General]\nClientType=1\n" : "");
    CHold& all = hold;
    app->onEvent = [&all](const support::SAppEvent& event) { all.Pass(event.code, event.param); };
    app->SetOnPlay([&all](uint32_t, uint8_t*, uint32_t) { all.Pass(kPlayCallback, 0); });
    app->SetOnRecord([&all](uint32_t, const uint8_t*, uint32_t) { all.Pass(kRecordCallback, 0); });
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    for (size_t card = 0; card < sim->CardCount(); ++card) {
      ASSERT_TRUE(Card(card).WaitUp(kSlow));
    }
    OpenAll();
  }

  void Hold(const SPlace& place) {
    ForgetAll();
    hold.Close(place.callback, place.param);
    place.cause(*this);
    ASSERT_TRUE(hold.WaitReached(kSlow)) << app->zelk.LogText();
  }

  // False when it does not come back; then the hold is ended, so that the test comes to an end.
  bool ShutdownInTime() {
    std::future<void> shutdown = std::async(std::launch::async, [this] { app->zelk.Shutdown(); });
    const bool isInTime = shutdown.wait_for(kAllWaits) == std::future_status::ready;
    if (!isInTime) {
      hold.Open();
    }
    shutdown.get();
    return isInTime;
  }

  void ExpectACallIsTaken(int32_t channel = 0, size_t card = 0) {
    ASSERT_TRUE(app->zelk.OpenChannel(channel));
    const Call call = Card(card).PlaceCall({.timeslot = 1});
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon)) << app->zelk.LogText();
    app->zelk.Answer(channel);
    ASSERT_TRUE(call->WaitState(cardsim::ESimCallState::kConnected, kSoon));
  }

  void TearDown() override {
    hold.Open();
    EXPECT_TRUE(hold.WaitEmpty(kSlow));
    if (answering.joinable()) {
      answering.join();
    }
    CCallTest::TearDown();
  }

  // The protected parts that the places use.
  using CCallTest::ConnectIncoming;
  using CCallTest::Offer;
  cardsim::CCard& TheCard() { return Card(); }
  support::CApplication& App() { return *app; }
  void Dial(const SAnswerPlan& plan) {
    Card().SetAnswerPlan(plan);
    EXPECT_TRUE(app->zelk.Dial(0, "0405556789", "8001000"));
  }
  void AnswerOnAThread() {
    answering = std::thread([this] { app->zelk.Answer(0); });
  }

  // Kept for good: a callback may be in it when the process ends.
  static CHold& NewHold() {
    static std::vector<std::unique_ptr<CHold>>& holds = *new std::vector<std::unique_ptr<CHold>>;
    holds.push_back(std::make_unique<CHold>());
    return *holds.back();
  }

  CHold& hold = NewHold();

 private:
  std::thread answering;
};

using CTest = CBlockedCallbackTest;

SAnswerPlan ProgressOnly() {
  SAnswerPlan plan = SAnswerPlan::NeverAnswer();
  plan.alertAfter.reset();
  plan.progressAfter = 0ms;
  return plan;
}

void LoseTheCard(CTest& test) {
  test.TheCard().SetControlSilent(true);
}
void AnnounceWithACall(CTest& test) {
  test.ConnectIncoming(1);
  test.TheCard().Announce();
}

const SPlace kLostCard{"card_lost", ZELK_EVENT_CHANNEL_STATE, 0, LoseTheCard};
const SPlace kReopening{"reopening", ZELK_EVENT_CHANNEL_STATE, 0, AnnounceWithACall};
const SPlace kIncoming{"incoming_call", ZELK_EVENT_INCOMING_CALL, 0,
                       [](CTest& test) { test.TheCard().PlaceCall({.timeslot = 1}); }};

const std::vector<SPlace> kPlaces{
    kIncoming,
    {"connected_by_the_far_end", ZELK_EVENT_CONNECTED, 0, [](CTest& test) { test.Dial(SAnswerPlan()); }},
    {"connected_by_us", ZELK_EVENT_CONNECTED, 0,
     [](CTest& test) {
       test.Offer(1);
       test.App().zelk.Answer(0);
     }},
    {"connected_inside_answer", ZELK_EVENT_CONNECTED, 0,
     [](CTest& test) {
       test.Offer(1);
       test.AnswerOnAThread();
     },
     true},
    {"disconnected", ZELK_EVENT_DISCONNECTED, 16, [](CTest& test) { test.ConnectIncoming(1)->Hangup(16); }},
    {"alerting", ZELK_EVENT_ALERTING, 0, [](CTest& test) { test.Dial(SAnswerPlan::NeverAnswer()); }},
    {"proceeding", ZELK_EVENT_PROCEEDING, CHold::kAnyParam, [](CTest& test) { test.Dial(SAnswerPlan::NeverAnswer()); }},
    {"progress", ZELK_EVENT_PROGRESS, CHold::kAnyParam, [](CTest& test) { test.Dial(ProgressOnly()); }},
    {"channel_up", ZELK_EVENT_CHANNEL_STATE, 1, [](CTest& test) { test.TheCard().TakeLayer2Down(0); }},
    {"channel_down", ZELK_EVENT_CHANNEL_STATE, 0, [](CTest& test) { test.TheCard().TakeLayer2Down(0); }},
    kLostCard,
    kReopening,
    {"digit", ZELK_EVENT_DTMF, '5', [](CTest& test) { test.ConnectIncoming(1)->SendDigits("5"); }},
    {"play_done", ZELK_EVENT_PLAY_DONE, 0,
     [](CTest& test) {
       const std::vector<uint8_t> sound(160, 0x55);
       EXPECT_TRUE(test.App().zelk.PlayBuffer(0, sound.data(), static_cast<uint32_t>(sound.size())));
     }},
    {"play_callback", kPlayCallback, 0, [](CTest&) {}},
    {"record_callback", kRecordCallback, 0, [](CTest&) {}},
};

class BlockedCallback : public CBlockedCallbackTest, public testing::WithParamInterface<SPlace> {};

TEST_P(BlockedCallback, delays_a_shutdown_by_the_described_waits_only) {
  ASSERT_NO_FATAL_FAILURE(StartWithHold(GetParam()));
  ASSERT_NO_FATAL_FAILURE(Hold(GetParam()));
  ASSERT_TRUE(ShutdownInTime()) << app->zelk.LogText();
  EXPECT_EQ(app->zelk.GetChannelCount(), 0);
  hold.Open();
  ASSERT_TRUE(hold.WaitEmpty(kSlow));
  Card().SetControlSilent(false);
  // The thread that was held lets its trunk go within a moment; until then the card cannot be opened.
  ASSERT_TRUE(support::Eventually(
      [this] {
        EXPECT_TRUE(app->zelk.Init());
        if (app->zelk.GetChannelCount() == 0) {
          app->zelk.Shutdown();
        }
        return app->zelk.GetChannelCount() == 30;
      },
      kSlow))
      << app->zelk.LogText();
  EXPECT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
}

INSTANTIATE_TEST_SUITE_P(of, BlockedCallback, testing::ValuesIn(kPlaces),
                         [](const auto& place) { return std::string(place.param.name); });

class LateThread : public BlockedCallback {};

// Held in a callback over a shut-down and a new start: no lock of a trunk is held there, so the card opens at once.
TEST_P(LateThread, leaves_the_next_openings_channels_alone) {
  ASSERT_NO_FATAL_FAILURE(StartWithHold(GetParam()));
  ASSERT_NO_FATAL_FAILURE(Hold(GetParam()));
  ASSERT_TRUE(ShutdownInTime()) << app->zelk.LogText();
  Card().SetControlSilent(false);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(Card().WaitUp(kSlow));
  app->Forget();
  ASSERT_NO_FATAL_FAILURE(ExpectACallIsTaken());
  const size_t changes = app->Count(ZELK_EVENT_CHANNEL_STATE);
  hold.Open();
  ASSERT_TRUE(hold.WaitEmpty(kSlow));
  ASSERT_TRUE(support::Eventually([&] { return app->Count(ZELK_EVENT_CHANNEL_STATE) > changes; }));
  // A digit that has to make its way through the whole card gives a thread that goes on the time to do so.
  app->zelk.OpenChannel(1);
  const Call second = Card().PlaceCall({.timeslot = 2});
  EXPECT_TRUE(app->WaitEvent(1, ZELK_EVENT_INCOMING_CALL, kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_CHANNEL_STATE), changes + 1) << "the one that was held, and no other";
  EXPECT_EQ(State(0), 4U) << "the call goes on";
}

INSTANTIATE_TEST_SUITE_P(from, LateThread, testing::Values(kLostCard, kReopening),
                         [](const auto& place) { return std::string(place.param.name); });

class ProcessEnd : public BlockedCallback {};

TEST_P(ProcessEnd, does_not_wait_for_a_callback_that_never_returns) {
  if (remote::CRemoteLibrary::Place() != nullptr) {
    GTEST_SKIP() << "the process that would end is the other one";
  }
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto heldToTheEnd = [this] {
    StartWithHold(GetParam());
    Hold(GetParam());
    if (HasFailure() || !ShutdownInTime()) {
      std::exit(1);
    }
    sim.reset();
    std::exit(0);
  };
  EXPECT_EXIT(heldToTheEnd(), testing::ExitedWithCode(0), "");
}

TEST_P(ProcessEnd, without_a_shutdown_does_not_wait_either) {
  if (remote::CRemoteLibrary::Place() != nullptr) {
    GTEST_SKIP() << "the process that would end is the other one";
  }
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto heldToTheEnd = [this] {
    StartWithHold(GetParam());
    Hold(GetParam());
    std::exit(HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(heldToTheEnd(), testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(of, ProcessEnd, testing::Values(kIncoming, kLostCard, kReopening),
                         [](const auto& place) { return std::string(place.param.name); });

class HeldListener : public CBlockedCallbackTest {};

TEST_F(HeldListener, serves_other_cards_when_the_callback_returns) {
  ASSERT_NO_FATAL_FAILURE(StartWithHold(kReopening, {1, 1}));
  ASSERT_NO_FATAL_FAILURE(Hold(kReopening));
  const int connections = Card(1).Seen().Connections();
  Card(1).Announce();
  // The callback's thread is the one that hears it.
  EXPECT_FALSE(Card(1).Seen().WaitConnections(connections + 1, 500ms));
  hold.Open();
  EXPECT_TRUE(Card(1).Seen().WaitConnections(connections + 1, kSlow)) << app->zelk.LogText();
  EXPECT_TRUE(app->WaitAllReady(kSlow)) << app->zelk.LogText();
  EXPECT_TRUE(Card(0).WaitUp(kSlow));
}

}  // namespace
