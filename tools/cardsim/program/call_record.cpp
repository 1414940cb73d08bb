// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/program/call_record.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace cardsim {
namespace {

double MsBetween(const std::vector<SCallStep>& steps, ESimCallState from, ESimCallState to) {
  const auto find = [&](ESimCallState state) {
    return std::find_if(steps.begin(), steps.end(), [&](const SCallStep& step) { return step.state == state; });
  };
  const auto first = find(from);
  const auto second = find(to);
  if (first == steps.end() || second == steps.end()) {
    return -1;
  }
  return std::chrono::duration<double, std::milli>(second->time - first->time).count();
}

}  // namespace

SCallRecord RecordOf(const CCall& call) {
  SCallRecord record;
  const std::vector<SCallStep> steps = call.Steps();
  record.card = call.card;
  record.trunk = call.trunk;
  record.timeslot = call.Timeslot();
  record.fromLibrary = call.direction == ECallDirection::kFromLibrary;
  record.calling = call.Calling();
  record.called = call.Called();
  record.connected = call.Reached(ESimCallState::kConnected);
  record.setupMs = MsBetween(steps, ESimCallState::kSetup, ESimCallState::kConnected);
  record.durationMs = std::max(0.0, MsBetween(steps, ESimCallState::kConnected, ESimCallState::kEnded));
  record.cause = call.Cause();
  record.clearedBy = call.ClearedBy();
  return record;
}

std::string LineOf(const SCallRecord& record) {
  char head[128];
  std::snprintf(head, sizeof(head), "call %llu: card %d trunk %d timeslot %d %s ",
                static_cast<unsigned long long>(record.number), record.card + 1, record.trunk + 1, record.timeslot,
                record.fromLibrary ? "from the library" : "to the library");
  return head + record.calling + " -> " + record.called + (record.connected ? ", connected" : ", not connected") +
         ", cause " + std::to_string(record.cause) + " by " + ClearedByName(record.clearedBy);
}

std::string ClearedByName(EClearedBy by) {
  switch (by) {
    case EClearedBy::kLibrary:
      return "library";
    case EClearedBy::kNetwork:
      return "network";
    case EClearedBy::kLost:
      return "lost";
    case EClearedBy::kNobody:
      break;
  }
  return "nobody";
}

}  // namespace cardsim
