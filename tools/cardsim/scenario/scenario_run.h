// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "cardsim/card/simulator.h"
#include "cardsim/scenario/scenario.h"
#include "cardsim/scenario/step_runner.h"

namespace cardsim {

// How one call of a scenario went.
struct SScenarioResult {
  std::string name;
  int number = 1;  // of the repetition
  double seconds = 0;
  std::optional<SFault> fault;
};

// Job: plays a scenario's far ends against the library, each call on a thread of its own. A call of the library is the
// first far end's that waits for one like it; one that nobody waits for is answered, and counted.
// Thread: one; Run blocks to the end of the scenario, or until `stop`. The simulator has to outlive it; it is running
// when Run begins, and stopped with the scenario's end, because its observers are here. Run throws std::runtime_error
// when the scenario cannot be played: it names a card or trunk that is not there, or no library opens a card in the
// time of its first call.
class CScenarioRun {
 public:
  using Show = std::function<void(const SScenarioResult&)>;  // on any thread, one at a time

  CScenarioRun(CSimulator& simulator, const SScenario& theScenario, const std::atomic<bool>& stopFlag, Show showResult);
  ~CScenarioRun();
  CScenarioRun(const CScenarioRun&) = delete;
  CScenarioRun& operator=(const CScenarioRun&) = delete;

  // The results in the order in which the calls ended. Strict: with those of calls that nobody waited for and of audio
  // packets that were not answered.
  std::vector<SScenarioResult> Run(bool isStrict);

 private:
  struct SFarEndState {
    int claimed = 0;
    std::deque<Call> arrived;
  };

  void RequirePlaces() const;
  void RequireLibrary() const;
  void Observe();
  SAnswerPlan PlanFor(const CCall& call);
  void OnArrived(const Call& call);
  void PlayFarEnd(std::size_t index);
  bool AwaitTrunk(const SScenarioCall& plan, int number);
  void PlaceCalls(const SScenarioCall& plan);
  void AwaitCalls(std::size_t index);
  Call NextArrival(std::size_t index);
  void PlayCall(const SScenarioCall& plan, const Call& call, int number);
  void Add(SScenarioResult result);
  void AddStrict();

  CSimulator& sim;
  const SScenario& scenario;
  const std::atomic<bool>& stop;
  const Show show;

  std::mutex lock;
  std::condition_variable arrival;
  std::vector<SFarEndState> states;            // guarded by lock
  std::map<const CCall*, std::size_t> claims;  // guarded by lock
  int unexpected = 0;                          // guarded by lock
  std::vector<SScenarioResult> results;        // guarded by lock
};

}  // namespace cardsim
