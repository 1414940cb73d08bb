// SPDX-License-Identifier: GPL-2.0-only

// The cards of a soak: exchanges that take and place calls on all trunks, and what goes wrong with the second half of
// the cards. Usage: soak_cards SEED QUIET_TRUNKS FAULTY_TRUNKS   (comma-separated, a number a card)
//
// "ready" when they are there. Lines on the input: "calls" begins calls and faults, "rest" ends the faults, "end" the
// calls; at the end of the input a line of JSON with what was heard. Faults go to the error output, one a line.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "cardsim/card/simulator.h"
#include "soak/sound.h"

namespace {

using cardsim::Call;
using cardsim::CCard;
using std::chrono::milliseconds;

constexpr milliseconds kTurn{20};
constexpr milliseconds kBetweenCalls{1500};
constexpr uint32_t kFirstNumber = 2000000;

std::vector<int> TrunksOf(const std::string& text) {
  std::vector<int> trunks;
  std::istringstream parts(text);
  for (std::string part; std::getline(parts, part, ',');) {
    trunks.push_back(std::stoi(part));
  }
  return trunks;
}

class CSoakCards {
 public:
  CSoakCards(uint32_t seed, const std::vector<int>& quietTrunks, const std::vector<int>& faultyTrunks)
      : random(seed), quiet(quietTrunks.size()), simulator(ConfigOf(quietTrunks, faultyTrunks)) {
    for (size_t card = 0; card < simulator.CardCount(); ++card) {
      const bool isQuiet = card < quiet;
      simulator.Card(card).SetAnswerPlanner([isQuiet](const cardsim::CCall& call) { return PlanOf(call, isQuiet); });
      simulator.Card(card).OnCallEnded([this, isQuiet](const Call& call) { TakeEnd(call, isQuiet); });
    }
    simulator.Start();
  }

  // Thread: the main one. A call on about two thirds of the timeslots, a fault every second or so.
  void Turn(bool hasCalls, bool hasFaults) {
    for (size_t card = 0; hasCalls && card < simulator.CardCount(); ++card) {
      for (int trunk = 0; trunk < simulator.Card(card).TrunkCount(); ++trunk) {
        if (Draw(1000) < 2 * static_cast<uint32_t>(kTurn.count())) {
          PlaceCall(simulator.Card(card), trunk);
        }
      }
    }
    Mend(hasFaults);
    if (hasFaults && simulator.CardCount() > quiet && Draw(1000) < static_cast<uint32_t>(kTurn.count())) {
      Break();
    }
  }

  void Report() {
    uint64_t missing = 0;
    for (size_t card = 0; card < quiet; ++card) {
      missing += simulator.Card(card).Audio().Statistics().missing;
    }
    const std::lock_guard<std::mutex> held(lock);
    std::printf("{\"placed\": %u, \"ended\": %llu, \"exact\": %llu, \"missing_replies\": %llu, \"faults\": %u, ",
                placed, static_cast<unsigned long long>(ended), static_cast<unsigned long long>(exact),
                static_cast<unsigned long long>(missing), faults);
    std::printf("\"violations\": [%s]}\n", violations.c_str());
    std::fflush(stdout);
  }

  void Stop() { simulator.Stop(); }

 private:
  using Place = std::array<int, 3>;  // card, trunk, timeslot

  static cardsim::SSimulatorConfig ConfigOf(std::vector<int> trunks, const std::vector<int>& faultyTrunks) {
    trunks.insert(trunks.end(), faultyTrunks.begin(), faultyTrunks.end());
    cardsim::SSimulatorConfig config = cardsim::SSimulatorConfig::WithTrunks(trunks, "127.0.1.1");
    config.keepHistory = false;
    return config;
  }

  static cardsim::SFarEnd FarEndOf(uint32_t number, bool isQuiet) {
    const soak::SCallRules rules(number);
    cardsim::SFarEnd farEnd;
    farEnd.play = cardsim::MakeBytesSource(rules.FromFarEnd());
    if (rules.EndsAtFarEnd()) {
      farEnd.hangupAfter = milliseconds(rules.FarEndMs());
    }
    farEnd.clearing = static_cast<cardsim::EClearing>(isQuiet ? 0 : number / 16 % 4);
    return farEnd;
  }

  static cardsim::SAnswerPlan PlanOf(const cardsim::CCall& call, bool isQuiet) {
    const uint32_t number = soak::NumberOf(call.Called());
    const soak::SCallRules rules(number);
    if (rules.IsRefused()) {
      return cardsim::SAnswerPlan::Refuse(17);
    }
    cardsim::SAnswerPlan plan = rules.IsNeverAnswered() ? cardsim::SAnswerPlan::NeverAnswer() : cardsim::SAnswerPlan();
    if (plan.answerAfter) {
      plan.answerAfter = milliseconds(100 + number % 700);
    }
    plan.farEnd = FarEndOf(number, isQuiet);
    return plan;
  }

  void PlaceCall(CCard& card, int trunk) {
    const uint32_t number = kFirstNumber + placed++;
    cardsim::SCallRequest request;
    request.trunk = trunk;
    request.timeslot = static_cast<int>(1 + Draw(31));
    request.calling = std::to_string(number);
    request.giveUpAfter = milliseconds(8000);
    request.farEnd = FarEndOf(number, static_cast<size_t>(card.Index()) < quiet);
    const bool isVoice = request.timeslot != 16 && card.IsTimeslotIdle(trunk, request.timeslot);
    if (isVoice && IsRested({card.Index(), trunk, request.timeslot})) {
      card.PlaceCall(request);
    }
  }

  // Sound of the last call there may be on its way for as long as blocks wait in the library's rings.
  bool IsRested(const Place& place) {
    const std::lock_guard<std::mutex> held(lock);
    const auto last = ends.find(place);
    return last == ends.end() || std::chrono::steady_clock::now() - last->second > kBetweenCalls;
  }

  // Thread: signalling. What the far end heard of a call that no fault could touch.
  void TakeEnd(const Call& call, bool isQuiet) {
    const bool fromLibrary = call->direction == cardsim::ECallDirection::kFromLibrary;
    const uint32_t number = soak::NumberOf(fromLibrary ? call->Called() : call->Calling());
    const std::lock_guard<std::mutex> held(lock);
    ++ended;
    ends[{call->card, call->trunk, call->Timeslot()}] = std::chrono::steady_clock::now();
    if (!isQuiet || !call->Reached(cardsim::ESimCallState::kConnected)) {
      return;
    }
    const soak::SCallRules rules(number);
    const bool isWhole = !rules.EndsAtFarEnd() && call->ClearedBy() == cardsim::EClearedBy::kLibrary;
    const std::string fault = soak::FaultOf(call->Recorded(), rules.FromApplication(), isWhole);
    if (fault.empty()) {
      ++exact;
      return;
    }
    violations += (violations.empty() ? "\"call " : ", \"call ") + std::to_string(number) +
                  ": what the far end heard " + fault + "\"";
  }

  void Break() {
    const size_t index = quiet + Draw(static_cast<uint32_t>(simulator.CardCount() - quiet));
    CCard& card = simulator.Card(index);
    const auto trunk = static_cast<int>(Draw(static_cast<uint32_t>(card.TrunkCount())));
    static constexpr const char* kNames[] = {
        "restart", "silent",           "lose layer 2", "layer 2 down",  "hdlc errors", "sound", "sound pause",
        "hold",    "restart timeslot", "restart all",  "damaged Q.931", "announce",    "reset"};
    const uint32_t what = Draw(std::size(kNames));
    std::fprintf(stderr, "%s: card %zu trunk %d\n", kNames[what], index, trunk);
    ++faults;
    Do(what, card, trunk);
  }

  void Do(uint32_t what, CCard& card, int trunk) {
    switch (what) {
      case 0:
        return card.Restart();
      case 1:
        card.SetControlSilent(true);
        return Later(1500 + Draw(1000), [&card] {
          card.SetControlSilent(false);
          card.Restart();
        });
      case 2:
        card.LoseLayer2(trunk);
        return Later(500 + Draw(3000), [&card, trunk] { card.CutLine(trunk, false); });
      case 3:
        return card.TakeLayer2Down(trunk);
      case 4:
        return card.SendHdlcErrors(trunk, 2, 12);
      case 5:
        card.Audio().SetFaults({.loss = 5, .duplicates = 3, .reordered = 3, .seed = Draw(1000)});
        return Later(2000, [&card] { card.Audio().SetFaults({}); });
      case 6:
        return card.Audio().PauseFor(milliseconds(100 + Draw(900)));
      case 7:
        card.HoldFromLibrary(trunk, true);
        return Later(50 + Draw(500), [&card, trunk] { card.HoldFromLibrary(trunk, false); });
      case 8:
        return card.RestartTimeslot(trunk, static_cast<int>(1 + Draw(15)));
      case 9:
        return card.RestartInterface(trunk);
      case 10:
        return SendDamaged(card, trunk);
      case 11:
        return card.Announce();
      default:
        card.ResetControl();
        return Later(300 + Draw(1000), [&card] { card.Restart(); });
    }
  }

  // A SETUP in which some bytes are others.
  void SendDamaged(CCard& card, int trunk) {
    cardsim::Bytes message = {0x08, 0x02, 0x12, 0x34, 0x05, 0x04, 0x03, 0x80, 0x90, 0xA3, 0x18, 0x03, 0xA9, 0x83, 0x9E,
                              0x6C, 0x06, 0x21, 0x81, '3',  '3',  '3',  '3',  0x70, 0x04, 0xA1, '1',  '0',  '0'};
    for (uint32_t i = 0; i < 3; ++i) {
      message[4 + Draw(static_cast<uint32_t>(message.size()) - 4)] = static_cast<uint8_t>(Draw(256));
    }
    card.SendQ931(trunk, std::move(message));
  }

  void Later(uint32_t ms, std::function<void()> act) {
    mends.push_back({std::chrono::steady_clock::now() + milliseconds(ms), std::move(act)});
  }
  void Mend(bool onlyDue) {
    const auto now = std::chrono::steady_clock::now();
    for (size_t i = 0; i < mends.size();) {
      if (onlyDue && mends[i].due > now) {
        ++i;
        continue;
      }
      const auto act = std::move(mends[i].act);
      mends.erase(mends.begin() + static_cast<ptrdiff_t>(i));
      act();
    }
  }
  uint32_t Draw(size_t bound) { return static_cast<uint32_t>(random() % bound); }

  struct SMend {
    std::chrono::steady_clock::time_point due;
    std::function<void()> act;
  };

  std::mt19937 random;
  const size_t quiet;
  uint32_t placed = 0;
  uint32_t faults = 0;
  std::vector<SMend> mends;
  std::mutex lock;
  std::map<Place, std::chrono::steady_clock::time_point> ends;  // guarded by lock
  uint64_t ended = 0;                                           // guarded by lock
  uint64_t exact = 0;                                           // guarded by lock
  std::string violations;                                       // guarded by lock; of a JSON list
  cardsim::CSimulator simulator;
};

void Run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3) {
    throw std::runtime_error("usage: soak_cards SEED QUIET_TRUNKS FAULTY_TRUNKS");
  }
  CSoakCards cards(soak::NumberOf(arguments[0]), TrunksOf(arguments[1]), TrunksOf(arguments[2]));
  std::atomic<bool> hasCalls{false};
  std::atomic<bool> hasFaults{false};
  std::atomic<bool> isOver{false};
  std::thread turns([&] {
    while (!isOver) {
      cards.Turn(hasCalls, hasFaults);
      std::this_thread::sleep_for(kTurn);
    }
  });
  std::puts("ready");
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
    hasCalls = line != "end";
    hasFaults = line == "calls";
  }
  isOver = true;
  turns.join();
  cards.Report();
  cards.Stop();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    Run(std::vector<std::string>(arguments + 1, arguments + count));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "soak_cards: %s\n", error.what());
    return 1;
  }
  return 0;
}
