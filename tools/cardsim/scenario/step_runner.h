// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "cardsim/card/card.h"
#include "cardsim/scenario/scenario.h"

namespace cardsim {

// A thread that waits for something of the line looks this often whether it is to stop.
constexpr std::chrono::milliseconds kStopSeenWithin{100};

// What went otherwise than expected.
struct SFault {
  std::size_t step = 0;  // counted from 1; 0: before the first
  std::string text;      // of the step
  std::string expected;
  std::string got;
};

// Job: takes one call through its steps, as its far end. Thread: one of its own for each call; blocks as long as the
// steps take, or until `stop`. The call is over when Run returns, or has been given 10 s to end.
class CStepRunner {
 public:
  CStepRunner(CCard& ofCard, Call theCall, const std::atomic<bool>& stopFlag)
      : card(ofCard), call(std::move(theCall)), stop(stopFlag) {}

  std::optional<SFault> Run(const SScenarioCall& plan);

 private:
  using Failure = std::optional<SFault>;

  Failure Do(const SStep& step);
  Failure Expect(const SStep& step);
  Failure Hear(const SStep& step);
  Failure Play(const SStep& step);
  Failure DoOnCall(const SStep& step);
  void DoOnTrunk(const SStep& step);
  // What the library has said that no step has asked for, and whether the call is over.
  std::string WhatCame() const;

  CCard& card;
  const Call call;
  const std::atomic<bool>& stop;
  std::size_t nextMessage = 0;
  std::size_t heardTo = 0;
};

}  // namespace cardsim
