#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "call_fixture.h"

namespace {

using cardsim::Call;
using cardsim::SAnswerPlan;
using Clock = std::chrono::steady_clock;

constexpr int kCiSeconds = 15;

// How long the stress lasts: ZELK_STRESS_SECONDS, 60 by hand; it scales the number of calls in a row, too.
int StressSeconds() {
  const char* text = std::getenv("ZELK_STRESS_SECONDS");
  const int seconds = text == nullptr ? 0 : std::atoi(text);
  return seconds > 0 ? seconds : kCiSeconds;
}

class CStress : public CCallTest {
 protected:
  // Far ends of every kind: they answer, ring on, refuse and hang up after a while.
  SAnswerPlan RandomPlan() {
    const uint32_t value = planCounter++ * 2654435761U >> 16;
    SAnswerPlan plan;
    plan.proceeding = value % 2 == 0;
    plan.answerAfter = std::chrono::milliseconds(value % 40);
    plan.farEnd.hangupAfter = std::chrono::milliseconds(value % 300);
    plan.farEnd.clearing = static_cast<cardsim::EClearing>(value / 300 % 4);
    switch (value % 7) {
      case 0:
        plan = SAnswerPlan::Refuse(value % 2 == 0 ? 17 : 1);
        plan.proceeding = value % 4 < 2;
        return plan;
      case 1: {
        plan = SAnswerPlan::NeverAnswer();
        plan.refuseCause = 19;
        plan.refuseAfter = std::chrono::milliseconds(300);
        return plan;
      }
      default:
        return plan;
    }
  }

  void Application(uint32_t seed) {
    std::mt19937 random(seed);
    while (!stop) {
      const auto channel = static_cast<int32_t>(random() % static_cast<uint32_t>(app->zelk.GetChannelCount()));
      switch (random() % 8) {
        case 0:
        case 1:
        case 2:
          dials += app->zelk.Dial(channel, "5551234", "100") ? 1 : 0;
          break;
        case 3:
        case 4:
          app->zelk.Answer(channel);
          break;
        case 5:
          app->zelk.Hangup(channel);
          break;
        case 6:
          app->zelk.Reject(channel);
          break;
        default:
          app->zelk.GetChannelInfoString(channel, ZELK_INFO_CLI);
          app->zelk.GetChannelInfo(channel, ZELK_INFO_CHANNELSTATE);
          app->zelk.SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, static_cast<int32_t>(random() % 4));
      }
      ++operations;
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
    }
  }

  void Keep(const Call& call) {
    const std::lock_guard<std::mutex> guard(lock);
    calls.push_back(call);
  }

  // The far ends of calls that the library has lost with their trunk have nobody left to talk to.
  void HangUpEverywhere() {
    const std::lock_guard<std::mutex> guard(lock);
    for (const Call& call : calls) {
      if (!call->Reached(cardsim::ESimCallState::kEnded)) {
        call->Hangup();
      }
    }
  }

  // Offers calls, and takes one trunk down and up again and again.
  void Network(Clock::time_point end) {
    std::mt19937 random(1);
    auto nextLoss = Clock::now() + std::chrono::seconds(2);
    while (Clock::now() < end) {
      cardsim::SCallRequest request;
      request.trunk = static_cast<int>(random() % 2);
      request.giveUpAfter = std::chrono::milliseconds(random() % 500);
      request.farEnd.hangupAfter = std::chrono::milliseconds(random() % 300);
      request.farEnd.clearing = static_cast<cardsim::EClearing>(random() % 4);
      if (random() % 8 == 0) {
        request.timeslot = cardsim::SCallRequest::kAnyChannel;
      }
      Keep(Card().PlaceCall(request));
      ++offers;
      if (Clock::now() >= nextLoss) {
        LoseTrunk(static_cast<int>(random() % 2));
        nextLoss = Clock::now() + std::chrono::milliseconds(1000 + random() % 2000);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  void LoseTrunk(int trunk) {
    Card().LoseLink(trunk);
    Eventually([&] { return State(trunk * 30 + 29) == static_cast<uint32_t>(ZELK_CHANNEL_DOWN); });
    ++losses;
    Card().CutLine(trunk, false);
  }

  // The messages of the last call that was set up on a timeslot, for the report of a failure.
  std::string LastCall(int trunk, int timeslot) {
    std::string text;
    int reference = -1;
    bool ours = false;
    std::vector<cardsim::SFrameRecord> frames = Card().Seen().Frames();
    for (const cardsim::SFrameRecord& frame : frames) {
      const cardsim::SQ931Message message = frame.Decode().message;
      if (frame.trunk != trunk || !message.valid) {
        continue;
      }
      const bool fromLibrary = frame.direction == cardsim::EDirection::kFromLibrary;
      if (message.name == "SETUP" && message.Timeslot() == timeslot) {
        text.clear();
        reference = message.callReference;
        ours = fromLibrary;
      }
      if (message.callReference == reference && message.fromDestination == (ours != fromLibrary)) {
        const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(frames.back().time - frame.time);
        text += (fromLibrary ? " < " : " > ") + message.name + "(" + std::to_string(message.Cause()) + ", " +
                std::to_string(age.count()) + " ms)";
      }
    }
    return text;
  }

  // The messages of every call on a trunk that no RELEASE COMPLETE has ended, for the report of a failure.
  std::string OpenCalls(int trunk) {
    std::map<std::pair<int, bool>, std::string> open;
    for (const cardsim::SFrameRecord& frame : Card().Seen().Frames()) {
      const cardsim::SQ931Message message = frame.Decode().message;
      if (frame.trunk != trunk || !message.valid || message.callReference == 0) {
        continue;
      }
      const bool fromLibrary = frame.direction == cardsim::EDirection::kFromLibrary;
      const std::pair<int, bool> call{message.callReference, message.fromDestination != fromLibrary};
      std::string& text = open[call];
      text = (message.name == "SETUP" ? std::string() : text) + (fromLibrary ? " < " : " > ") + message.name + "(" +
             std::to_string(message.Cause()) + ")";
      if (message.name == "RELEASE COMPLETE") {
        open.erase(call);
      }
    }
    std::string all;
    for (const auto& [call, text] : open) {
      all += "\n" + std::to_string(call.first) + (call.second ? " of the library:" : " of the exchange:") + text;
    }
    return all;
  }

  std::string LogEnd() {
    constexpr size_t kChars = 1500;
    const std::string text = app->zelk.LogText();
    return "\n" + text.substr(text.size() - std::min(text.size(), kChars));
  }

  std::string Busy() {
    std::string text;
    for (int32_t channel = 0; channel < 60; ++channel) {
      if (State(channel) != static_cast<uint32_t>(ZELK_CHANNEL_READY)) {
        text += std::to_string(channel) + " " + app->Text(channel, ZELK_INFO_CHANNELSTATE) + ":" +
                LastCall(channel / 30, static_cast<int>(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT))) + "\n";
      }
    }
    return text;
  }

  // Hangs up what the application still holds.
  bool AllReady() {
    bool allReady = true;
    for (int32_t channel = 0; channel < app->zelk.GetChannelCount(); ++channel) {
      if (State(channel) != static_cast<uint32_t>(ZELK_CHANNEL_READY)) {
        app->zelk.Hangup(channel);
        allReady = false;
      }
    }
    return allReady;
  }

  std::atomic<bool> stop{false};
  std::atomic<uint32_t> planCounter{1};
  std::atomic<uint64_t> operations{0};
  std::atomic<uint64_t> dials{0};
  uint64_t offers = 0;
  size_t losses = 0;
  std::mutex lock;
  std::vector<Call> calls;  // guarded by lock
};

// Far ends that the library has lost with their trunk are hung up by the test; everything else frees itself, by the
// protocol's timers at the latest (T305 and twice T308 when the exchange has lost the call and its answer too).
TEST_F(CStress, four_threads_and_failing_trunks_leave_every_channel_ready_and_no_call_behind) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}, "[General]\nClearedCallTimeout=1\n"));
  Card().SetAnswerPlanner([this](const cardsim::CCall&) { return RandomPlan(); });
  Card().OnCallArrived([this](const Call& call) { Keep(call); });
  std::array<std::thread, 4> threads;
  uint32_t seed = 100;
  for (std::thread& thread : threads) {
    thread = std::thread([this, own = ++seed] { Application(own); });
  }
  Network(Clock::now() + std::chrono::seconds(StressSeconds()));
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  HangUpEverywhere();
  EXPECT_TRUE(Eventually([this] { return AllReady(); }, std::chrono::seconds(60))) << Busy();
  HangUpEverywhere();
  EXPECT_TRUE(NetworkIsIdle(0, std::chrono::seconds(45))) << Card().CallCount(0);
  EXPECT_TRUE(NetworkIsIdle(1, std::chrono::seconds(45))) << Card().CallCount(1);
  std::cout << operations << " operations, " << dials << " calls dialled, " << offers << " offered, " << losses
            << " losses of a trunk\n";
  EXPECT_GT(app->Count(ZELK_EVENT_CONNECTED), 0U);
  // And everything still works.
  Card().SetAnswerPlan(SAnswerPlan());
  for (const int32_t channel : {0, 29, 30, 59}) {
    app->zelk.SetChannelInfo(channel, ZELK_SET_ALLOWINCOMING, 1);
    app->Forget();
    EXPECT_TRUE(app->zelk.Dial(channel, "1", "2"));
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon)) << channel << LogEnd();
    app->zelk.Hangup(channel);
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_DISCONNECTED, kSoon)) << channel << LogEnd();
  }
}

// No trunk fails here, so nothing but the clearings themselves can free a channel.
TEST_F(CStress, an_exchange_that_clears_in_every_permitted_way_leaves_every_channel_ready) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[General]\nClearedCallTimeout=1\n"));
  Card().SetAnswerPlanner([this](const cardsim::CCall&) { return RandomPlan(); });
  std::array<std::thread, 4> threads;
  uint32_t seed = 200;
  for (std::thread& thread : threads) {
    thread = std::thread([this, own = ++seed] { Application(own); });
  }
  const auto end = Clock::now() + std::chrono::seconds(std::max(StressSeconds() / 2, 5));
  std::mt19937 random(2);
  while (Clock::now() < end) {
    cardsim::SCallRequest request;
    request.farEnd.clearing = static_cast<cardsim::EClearing>(random() % 4);
    request.giveUpAfter = std::chrono::milliseconds(random() % 500);
    Keep(Card().PlaceCall(request));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  HangUpEverywhere();
  EXPECT_TRUE(Eventually([this] { return AllReady(); }, std::chrono::seconds(60))) << Busy();
  EXPECT_TRUE(NetworkIsIdle(0, std::chrono::seconds(45))) << Card().CallCount(0) << OpenCalls(0);
  EXPECT_GT(app->Count(ZELK_EVENT_DISCONNECTED), 100U);
}

// Resident memory of this process in bytes, 0 where it cannot be told or says nothing.
size_t ResidentBytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 0;  // a sanitizer keeps freed memory
#else
  constexpr size_t kPageBytes = 4096;
  std::ifstream file("/proc/self/statm");
  size_t total = 0;
  size_t resident = 0;
  return file >> total >> resident ? resident * kPageBytes : 0;
#endif
}

// Every channel of a trunk dials, is answered, hangs up and dials again, all inside the event callback.
class CManyCalls : public CCallTest {
 protected:
  static constexpr int kCallsByHand = 10000;
  static constexpr int kSecondsByHand = 60;
  static constexpr size_t kMostGrowth = 2 * 1024 * 1024;

  void OnEvent(const support::SAppEvent& event) {
    if (event.code == ZELK_EVENT_CONNECTED) {
      ++connected;
      app->zelk.Hangup(event.channel);
    } else if (event.code == ZELK_EVENT_DISCONNECTED) {
      wrongCauses += event.param == 16 ? 0 : 1;
      if (++ended + kChannelsPerTrunk <= wanted) {
        refused += app->zelk.Dial(event.channel, "5551234", "100") ? 0 : 1;
      }
    }
  }

  bool Run(int calls) {
    connected = ended = wrongCauses = refused = 0;
    wanted = calls;
    for (int32_t channel = 0; channel < kChannelsPerTrunk; ++channel) {
      EXPECT_TRUE(app->zelk.Dial(channel, "5551234", "100"));
    }
    while (ended < calls) {
      const int before = ended;
      if (!Eventually([&] { return ended >= std::min(before + 500, calls); }, kSlow)) {
        return false;
      }
      app->Forget();
    }
    return connected == calls && wrongCauses == 0 && refused == 0;
  }

  std::atomic<int> wanted{0};
  std::atomic<int> connected{0};
  std::atomic<int> ended{0};
  std::atomic<int> wrongCauses{0};
  std::atomic<int> refused{0};
};

TEST_F(CManyCalls, thousands_of_calls_through_one_trunk_leave_no_channel_stuck_and_memory_flat) {
  const int calls = std::max(kCallsByHand * StressSeconds() / kSecondsByHand, 600);
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({1});
  config.keepHistory = false;
  sim = std::make_unique<cardsim::CSimulator>(config);
  sim->Start();
  app = std::make_unique<support::CApplication>();
  app->onEvent = [this](const support::SAppEvent& event) { OnEvent(event); };
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  ASSERT_TRUE(Run(300)) << "to warm up: " << connected << " connected, " << ended << " ended";
  const size_t before = ResidentBytes();
  ASSERT_TRUE(Run(calls)) << connected << " connected, " << ended << " ended, " << wrongCauses << " with other causes, "
                          << refused << " not dialled";
  const size_t after = ResidentBytes();
  EXPECT_TRUE(app->WaitAllReady(kSoon));
  EXPECT_TRUE(NetworkIsIdle());
  std::cout << calls << " calls, resident memory " << before / 1024 << " KiB before, " << after / 1024
            << " KiB after\n";
  EXPECT_LT(after, before + kMostGrowth);
  if (before == 0) {
    GTEST_SKIP() << "the memory part: this process cannot tell its resident memory";
  }
}

}  // namespace
