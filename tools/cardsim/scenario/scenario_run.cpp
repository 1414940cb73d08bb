// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/scenario_run.h"

#include <algorithm>
#include <stdexcept>

namespace cardsim {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

SScenarioResult Missing(const SScenarioCall& plan, int number, const std::string& expected, const std::string& got) {
  return {plan.name, number, 0, SFault{0, "the begin", expected, got}};
}

bool Matches(const SScenarioCall& plan, const CCall& call) {
  const auto isSame = [](const std::string& wanted, const std::string& is) { return wanted.empty() || wanted == is; };
  return plan.isFromLibrary && (plan.card < 0 || plan.card == call.card) &&
         (plan.trunk < 0 || plan.trunk == call.trunk) && isSame(plan.calling, call.Calling()) &&
         isSame(plan.called, call.Called());
}

}  // namespace

CScenarioRun::CScenarioRun(CSimulator& simulator, const SScenario& theScenario, const std::atomic<bool>& stopFlag,
                           Show showResult)
    : sim(simulator),
      scenario(theScenario),
      stop(stopFlag),
      show(std::move(showResult)),
      states(theScenario.calls.size()) {
  RequirePlaces();
  Observe();
}

CScenarioRun::~CScenarioRun() {
  sim.Stop();
}

void CScenarioRun::RequirePlaces() const {
  for (const SScenarioCall& call : scenario.calls) {
    if (call.card >= static_cast<int>(sim.CardCount())) {
      throw std::runtime_error("\"" + call.name + "\" is on card " + std::to_string(call.card + 1) + " of " +
                               std::to_string(sim.CardCount()));
    }
    if (call.card >= 0 && call.trunk >= sim.Card(static_cast<std::size_t>(call.card)).TrunkCount()) {
      throw std::runtime_error("\"" + call.name + "\" is on trunk " + std::to_string(call.trunk + 1) +
                               ", which the card does not have");
    }
  }
}

void CScenarioRun::Observe() {
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    sim.Card(i).SetAnswerPlanner([this](const CCall& call) { return PlanFor(call); });
    sim.Card(i).OnCallArrived([this](const Call& call) { OnArrived(call); });
  }
}

// On the signalling thread, and so is OnArrived.
SAnswerPlan CScenarioRun::PlanFor(const CCall& call) {
  const std::lock_guard guard(lock);
  for (std::size_t i = 0; i < scenario.calls.size(); ++i) {
    if (Matches(scenario.calls[i], call) && states[i].claimed < scenario.calls[i].repeat) {
      ++states[i].claimed;
      claims[&call] = i;
      SAnswerPlan plan;
      plan.alertAfter.reset();
      plan.answerAfter.reset();
      return plan;
    }
  }
  ++unexpected;
  return {};
}

void CScenarioRun::OnArrived(const Call& call) {
  {
    const std::lock_guard guard(lock);
    const auto claim = claims.find(call.get());
    if (claim == claims.end()) {
      return;
    }
    states[claim->second].arrived.push_back(call);
    claims.erase(claim);
  }
  arrival.notify_all();
}

std::vector<SScenarioResult> CScenarioRun::Run(bool isStrict) {
  RequireLibrary();
  std::vector<std::thread> farEnds;
  for (std::size_t i = 0; i < scenario.calls.size(); ++i) {
    farEnds.emplace_back([this, i] { PlayFarEnd(i); });
  }
  for (std::thread& farEnd : farEnds) {
    farEnd.join();
  }
  if (isStrict) {
    AddStrict();
  }
  const std::lock_guard guard(lock);
  return results;
}

void CScenarioRun::RequireLibrary() const {
  milliseconds within{0};
  for (const SScenarioCall& call : scenario.calls) {
    within = std::max(within, call.within);
  }
  const auto isOpen = [this] {
    for (std::size_t i = 0; i < sim.CardCount(); ++i) {
      if (sim.Card(i).Seen().WaitReady(kStopSeenWithin)) {
        return true;
      }
    }
    return false;
  };
  for (const auto end = Clock::now() + within; !isOpen();) {
    if (stop || Clock::now() >= end) {
      throw std::runtime_error(stop ? "stopped before a library opened a card"
                                    : "no library opened a card in " + std::to_string(within.count()) + " ms");
    }
  }
}

void CScenarioRun::PlayFarEnd(std::size_t index) {
  if (scenario.calls[index].isFromLibrary) {
    AwaitCalls(index);
  } else {
    PlaceCalls(scenario.calls[index]);
  }
}

// A repetition may have taken the trunk down, so each one waits for it.
bool CScenarioRun::AwaitTrunk(const SScenarioCall& plan, int number) {
  const CHistory& seen = sim.Card(static_cast<std::size_t>(plan.card)).Seen();
  const auto begin = Clock::now();
  while (!seen.WaitTrunk(plan.trunk, true, kStopSeenWithin)) {
    if (stop || Clock::now() - begin >= plan.within) {
      Add(Missing(plan, number, "the trunk to come up", stop ? "stopped" : "layer 2 stayed down"));
      return false;
    }
  }
  return true;
}

void CScenarioRun::PlaceCalls(const SScenarioCall& plan) {
  CCard& card = sim.Card(static_cast<std::size_t>(plan.card));
  std::vector<std::thread> calls;
  auto next = Clock::now();
  for (int number = 1; number <= plan.repeat && !stop && AwaitTrunk(plan, number); ++number) {
    SCallRequest request;
    request.trunk = plan.trunk;
    request.timeslot = plan.timeslot;
    request.calling = plan.calling;
    request.called = plan.called;
    request.redirecting = plan.redirecting;
    const Call call = card.PlaceCall(std::move(request));
    if (plan.perSecond <= 0) {
      PlayCall(plan, call, number);
      continue;
    }
    calls.emplace_back([this, &plan, call, number] { PlayCall(plan, call, number); });
    next += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / plan.perSecond));
    std::this_thread::sleep_until(next);
  }
  for (std::thread& call : calls) {
    call.join();
  }
}

void CScenarioRun::AwaitCalls(std::size_t index) {
  const SScenarioCall& plan = scenario.calls[index];
  std::vector<std::thread> calls;
  for (int number = 1; number <= plan.repeat && !stop; ++number) {
    const Call call = NextArrival(index);
    if (call == nullptr) {
      Add(Missing(plan, number, "a call from the library", stop ? "stopped" : "none came"));
      break;
    }
    calls.emplace_back([this, &plan, call, number] { PlayCall(plan, call, number); });
  }
  for (std::thread& call : calls) {
    call.join();
  }
}

Call CScenarioRun::NextArrival(std::size_t index) {
  const auto end = Clock::now() + scenario.calls[index].within;
  std::unique_lock guard(lock);
  std::deque<Call>& arrived = states[index].arrived;
  while (arrived.empty() && !stop && Clock::now() < end) {
    arrival.wait_until(guard, std::min(end, Clock::now() + kStopSeenWithin), [&arrived] { return !arrived.empty(); });
  }
  if (arrived.empty()) {
    return nullptr;
  }
  Call call = arrived.front();
  arrived.pop_front();
  return call;
}

void CScenarioRun::PlayCall(const SScenarioCall& plan, const Call& call, int number) {
  const auto begin = Clock::now();
  SScenarioResult result{plan.name, number, 0, {}};
  result.fault = CStepRunner(sim.Card(static_cast<std::size_t>(call->card)), call, stop).Run(plan);
  result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  Add(std::move(result));
}

void CScenarioRun::Add(SScenarioResult result) {
  const std::lock_guard guard(lock);
  show(result);
  results.push_back(std::move(result));
}

void CScenarioRun::AddStrict() {
  std::uint64_t missing = 0;
  for (std::size_t i = 0; i < sim.CardCount(); ++i) {
    missing += sim.Card(i).Audio().Statistics().missing;
  }
  if (missing > 0) {
    Add({"audio", 1, 0, SFault{0, "strict", "a reply to every packet", std::to_string(missing) + " missing"}});
  }
  int others = 0;
  {
    const std::lock_guard guard(lock);
    others = unexpected;
  }
  if (others > 0) {
    Add({"calls", 1, 0, SFault{0, "strict", "no further calls", std::to_string(others) + " from the library"}});
  }
}

}  // namespace cardsim
