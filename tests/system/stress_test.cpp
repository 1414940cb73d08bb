// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "call_fixture.h"
#include "stress_seconds.h"

namespace {

using cardsim::Call;
using cardsim::SAnswerPlan;
using Clock = std::chrono::steady_clock;

class Stress : public CCallTest {
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
      support::LetPass(std::chrono::microseconds(random() % 2000));  // the pace of its operations
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
      support::LetPass(std::chrono::milliseconds(10));  // the pace of the calls
    }
  }

  void LoseTrunk(int trunk) {
    Card().LoseLayer2(trunk);
    support::Eventually([&] { return State(trunk * 30 + 29) == static_cast<uint32_t>(ZELK_CHANNEL_DOWN); });
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
    for (const cardsim::SHeldCall& call : Card().HeldCalls(trunk)) {
      all += "\nheld by the exchange: " + std::to_string(call.reference & 0x7FFF) +
             ((call.reference & 0x8000) != 0 ? " of the exchange" : " of the library") + ", state " +
             std::to_string(call.state) + ", peer's " + std::to_string(call.peerState);
    }
    for (const auto& [call, text] : open) {
      all += "\n" + std::to_string(call.first) + (call.second ? " of the library:" : " of the exchange:") + text;
    }
    return all;
  }

  // Calls that the library's status page has counted, offered and dialled.
  uint64_t CallsOnPage() const {
    const std::string log = app->zelk.LogPath();
    std::ifstream file(log.substr(0, log.rfind('.')) + ".status", std::ios::binary);
    const std::string page{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    uint64_t sum = 0;
    for (size_t at = 13056; at + 64 <= page.size(); at += 64) {
      for (const size_t field : {24U, 28U}) {
        uint32_t count = 0;
        std::memcpy(&count, &page[at + field], sizeof count);
        sum += count;
      }
    }
    return sum;
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

// With the status page, which all threads of the library write.
// Far ends that the library has lost with their trunk are hung up by the test; everything else frees itself, by the
// protocol's timers at the latest (T305 and twice T308 when the exchange has lost the call and its answer too).
TEST_F(Stress, four_threads_and_failing_trunks_leave_every_channel_ready) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({2}, "[Debug]\nStatus=1\n[General]\nClearedCallTimeout=1\n"));
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
  EXPECT_TRUE(support::Eventually([this] { return AllReady(); }, std::chrono::seconds(60))) << Busy();
  HangUpEverywhere();
  EXPECT_TRUE(NetworkIsIdle(0, std::chrono::seconds(45))) << Card().CallCount(0) << OpenCalls(0);
  EXPECT_TRUE(NetworkIsIdle(1, std::chrono::seconds(45))) << Card().CallCount(1) << OpenCalls(1);
  std::cout << operations << " operations, " << dials << " calls dialled, " << offers << " offered, " << losses
            << " losses of a trunk\n";
  EXPECT_GT(app->Count(ZELK_EVENT_CONNECTED), 0U);
  if (remote::CRemoteLibrary::Place() == nullptr) {
    EXPECT_GT(CallsOnPage(), dials / 2);
  }
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

constexpr size_t kEnoughCalls = 100;

// No trunk fails here, so nothing but the clearings themselves can free a channel.
TEST_F(Stress, every_permitted_way_of_clearing_leaves_every_channel_ready) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}, "[General]\nClearedCallTimeout=1\n"));
  Card().SetAnswerPlanner([this](const cardsim::CCall&) { return RandomPlan(); });
  std::array<std::thread, 4> threads;
  uint32_t seed = 200;
  for (std::thread& thread : threads) {
    thread = std::thread([this, own = ++seed] { Application(own); });
  }
  const auto end = Clock::now() + std::chrono::seconds(std::max(StressSeconds() / 2, 5));
  const auto latest = end + std::chrono::seconds(60);
  std::mt19937 random(2);
  // On a machine that is slow, until enough calls have ended.
  while (Clock::now() < end || (app->Count(ZELK_EVENT_DISCONNECTED) <= kEnoughCalls && Clock::now() < latest)) {
    cardsim::SCallRequest request;
    request.farEnd.clearing = static_cast<cardsim::EClearing>(random() % 4);
    request.giveUpAfter = std::chrono::milliseconds(random() % 500);
    Keep(Card().PlaceCall(request));
    support::LetPass(std::chrono::milliseconds(10));  // the pace of the calls
  }
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  HangUpEverywhere();
  EXPECT_TRUE(support::Eventually([this] { return AllReady(); }, std::chrono::seconds(60))) << Busy();
  EXPECT_TRUE(NetworkIsIdle(0, std::chrono::seconds(45))) << Card().CallCount(0) << OpenCalls(0);
  EXPECT_GT(app->Count(ZELK_EVENT_DISCONNECTED), kEnoughCalls);
}

}  // namespace
