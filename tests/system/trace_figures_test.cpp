// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "trace_fixture.h"

// What zelk-trace tells of many channels and calls, beside what the exchange has of each of them.
namespace {

using cardsim::Call;
using cardsim::ESimCallState;
using nlohmann::json;

class TraceFigures : public CCaptureTest {
 protected:
  // ---- a call of some kind on every channel ----

  // Each channel's number is that of its called number or calling one.
  void Engage(int card, int trunk, int timeslot, int32_t channel) {
    const std::string number = std::to_string(30000 + channel);
    const int kind = channel % 5;  // given up, ringing, answered, dialled, answered and cleared
    if (kind == 3) {
      EXPECT_TRUE(app->zelk.Dial(channel, number.c_str(), "100"));
      return;
    }
    const Call call = Card(static_cast<size_t>(card))
                          .PlaceCall({.trunk = trunk, .timeslot = timeslot, .calling = number, .called = "100"});
    calls.push_back(call);
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSlow)) << channel;
    if (kind == 2 || kind == 4) {
      EXPECT_TRUE(app->zelk.Answer(channel));
      EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, kSlow)) << channel;
    }
    if (kind == 4 || kind == 0) {
      call->Hangup(16 + channel % 16);
      EXPECT_TRUE(call->WaitEnded(kSlow)) << channel;
    }
  }
  void EngageAll(const std::vector<int>& trunksOfCards) {
    cardsim::SAnswerPlan rings = cardsim::SAnswerPlan::NeverAnswer();
    int32_t channel = 0;
    for (size_t card = 0; card < trunksOfCards.size(); ++card) {
      Card(card).SetAnswerPlan(rings);
      for (int trunk = 0; trunk < trunksOfCards[card]; ++trunk) {
        for (int timeslot = 1; timeslot < 32; ++timeslot) {
          if (timeslot != 16) {
            Engage(static_cast<int>(card), trunk, timeslot, channel++);
          }
        }
      }
    }
    const auto dialled = static_cast<size_t>(channel / 5);
    for (size_t card = 0, found = 0; found < dialled; card = found < dialled ? card : card + 1) {
      Call call = Card(card).WaitCall(std::chrono::milliseconds(0));
      if (call == nullptr && ++card == trunksOfCards.size()) {
        break;
      }
      if (call != nullptr) {
        EXPECT_TRUE(call->WaitState(ESimCallState::kAlerting, kSlow));
        calls.push_back(call);
        ++found;
      }
    }
    EXPECT_EQ(calls.size(), static_cast<size_t>(channel));
  }

  // What the exchange has there: "100001-1 5 connected 30004 100 0". The cause of a channel is that of its ended call.
  std::map<std::string, std::string> States(bool withNumbers) const {
    std::map<std::string, std::string> states;
    for (size_t card = 0; card < sim->CardCount(); ++card) {
      for (int at = 0; at < sim->Card(card).TrunkCount() * 32; ++at) {
        if (at % 32 != 0 && at % 32 != 16) {
          states[Place(static_cast<int>(card), at / 32, at % 32)] = withNumbers ? "idle   0" : "idle";
        }
      }
    }
    for (const Call& call : calls) {
      const bool isRinging = !call->Reached(ESimCallState::kConnected);
      const bool isFromLibrary = call->direction == cardsim::ECallDirection::kFromLibrary;
      std::string text = call->Reached(ESimCallState::kEnded) ? "idle"
                         : !isRinging                         ? "connected"
                         : isFromLibrary                      ? "dialled"
                                                              : "ringing";
      if (withNumbers) {
        text += " " + call->Calling() + " " + call->Called() + " " + std::to_string(call->Cause());
      }
      states[Place(call->card, call->trunk, call->Timeslot())] = text;
    }
    return states;
  }
  static std::string Place(int card, int trunk, int timeslot) {
    return std::to_string(100001 + card) + "-" + std::to_string(trunk + 1) + " " + std::to_string(timeslot);
  }

  // Of a capture that grows meanwhile: its last packet may be there in part.
  json TraceJson(const std::string& verb) const {
    return json::parse(
        Run("( '" + (bin / "zelk-trace").string() + "' " + verb + " --json " + Capture() + " || true )"));
  }
  // The same as a board has it, with the numbers and causes of its calls by `calls`.
  std::map<std::string, std::string> Told(const json& board) const {
    std::map<std::string, std::string> states;
    for (const json& card : board["cards"]) {
      for (const json& trunk : card["trunks"]) {
        for (const json& channel : trunk["channels"]) {
          states[Place(card["card"].get<int>() - 100001, trunk["trunk"].get<int>() - 1,
                       channel["timeslot"].get<int>())] = channel["state"];
        }
      }
    }
    return states;
  }
  std::map<std::string, std::string> WithNumbers(std::map<std::string, std::string> states) const {
    std::map<std::string, std::string> numbers;
    for (const json& call : TraceJson("calls")) {
      const int cause = call["cause"].is_null() ? 0 : call["cause"].get<int>();
      numbers[Place(call["card"].get<int>() - 100001, call["trunk"].get<int>() - 1, call["timeslot"].get<int>())] =
          " " + call["calling"].get<std::string>() + " " + call["called"].get<std::string>() + " " +
          std::to_string(cause);
    }
    for (auto& [place, text] : states) {
      text += numbers.count(place) > 0 ? numbers[place] : "   0";
    }
    return states;
  }

  static Names Sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
  }
  // One in three is refused, one cleared by the far end as soon as it is connected, one given up while it rings.
  static cardsim::SAnswerPlan PlanOf(const cardsim::CCall& call) {
    constexpr std::array<int, 8> kRefusals{1, 17, 18, 21, 27, 31, 34, 42};
    const int number = std::atoi(call.Called().c_str());
    cardsim::SAnswerPlan plan =
        number % 3 == 0 ? cardsim::SAnswerPlan::Refuse(kRefusals.at(static_cast<size_t>(number) % kRefusals.size()))
                        : cardsim::SAnswerPlan();
    if (number % 3 == 2) {
      plan = cardsim::SAnswerPlan::NeverAnswer();
    } else if (number % 3 == 1) {
      plan.farEnd.hangupAfter = std::chrono::milliseconds(0);
      plan.farEnd.hangupCause = 16 + number % 4;
    }
    return plan;
  }

  std::vector<Call> calls;
};

// Thirty-four trunks: ringing, given up, answered, dialled and cleared calls side by side.
TEST_F(TraceFigures, the_board_has_what_the_exchange_has_on_every_channel) {
  const std::vector<int> trunks{8, 8, 8, 8, 2};
  ASSERT_NO_FATAL_FAILURE(StartCapture());
  ASSERT_NO_FATAL_FAILURE(StartOpen(trunks, "[Debug]\nStatus=1\n"));
  EngageAll(trunks);
  const auto expected = States(true);
  std::map<std::string, std::string> told;
  support::Eventually(
      [&] {
        told = WithNumbers(Told(TraceJson("board")));
        return told == expected;
      },
      kSlow);
  EXPECT_EQ(told, expected);
  const std::string log = app->zelk.LogPath();
  EXPECT_EQ(Told(json::parse(TraceOf("board --json --status " + log.substr(0, log.rfind('.')) + ".status"))),
            States(false));
  EXPECT_EQ(expected.size(), 1020U);
}

// Calls of every kind through all channels of two trunks, a number each.
TEST_F(TraceFigures, a_thousand_calls_are_told_as_the_exchange_had_them) {
  constexpr int kCalls = 1000;
  cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks({2});
  config.keepHistory = false;
  ASSERT_NO_FATAL_FAILURE(StartCapture());
  ASSERT_NO_FATAL_FAILURE(Start(config));
  ASSERT_TRUE(Card().WaitUp(kSlow));
  OpenAll();
  std::atomic<int> over{0};
  std::array<std::atomic<int>, 60> numbers{};  // by channel
  std::mutex lock;
  Names expected;
  Card().SetAnswerPlanner(PlanOf);
  Card().OnCallEnded([&](const Call& call) {
    const std::lock_guard<std::mutex> guard(lock);
    expected.push_back(CallText(cardsim::RecordOf(*call)));
  });
  app->onEvent = [&](const support::SAppEvent& event) {
    if (event.code == ZELK_EVENT_ALERTING && numbers.at(static_cast<size_t>(event.channel)) % 3 == 2) {
      app->zelk.Hangup(event.channel);
    }
    over += event.code == ZELK_EVENT_DISCONNECTED ? 1 : 0;
  };
  const CShutdownAtEnd shutsDown(*this);
  const auto ended = [&] {
    const std::lock_guard<std::mutex> guard(lock);
    return static_cast<int>(expected.size());
  };
  for (int dialled = 0; dialled < kCalls;) {
    for (int32_t channel = 0; channel < 60 && dialled < kCalls; ++channel) {
      const int number = 40000 + ++dialled;
      numbers.at(static_cast<size_t>(channel)) = number;
      EXPECT_TRUE(app->zelk.Dial(channel, std::to_string(number).c_str(), "100"));
    }
    ASSERT_TRUE(support::Eventually([&] { return ended() == dialled && over == dialled; }, kSlow))
        << ended() << " " << over;
  }
  FinishCapture(kCalls);
  EXPECT_EQ(Sorted(CallTexts()), Sorted(expected));
}

}  // namespace
