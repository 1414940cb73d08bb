// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include "soak/oracle.h"
#include "soak/sound.h"

namespace soak {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kKeptPast = 16;

// A channel as the application sees it. Guarded by its lock, which is never held in a call of the library.
struct SChannel {
  std::mutex lock;
  COracle oracle;
  uint32_t number = 0;  // of its call
  bool isQuiet = false;
  bool isPlayed = false;
  Bytes expected;  // of the far end
  Bytes recorded;
  std::string digits;
  Clock::time_point since;  // of the state
  Clock::time_point actAt;  // of what the application does next
  Clock::time_point completeAt;
  std::deque<std::pair<Clock::time_point, std::string>> past;  // the last events, and what the application did

  void Note(const std::string& what) {
    past.emplace_back(Clock::now(), what);
    if (past.size() > kKeptPast) {
      past.pop_front();
    }
  }
};

inline void Changed(SChannel& its, milliseconds actIn) {
  its.since = Clock::now();
  its.actAt = its.since + actIn;
}

// Before the call can be connected: its sound, which another thread brings, may be here before the event.
inline void BeginListening(SChannel& its) {
  its.recorded.clear();
  its.digits.clear();
  its.isPlayed = false;
  its.completeAt = {};
}

// Whether a call has had all of its sound, as far as amounts tell.
inline bool IsComplete(const SChannel& its) {
  const auto start = std::find_if_not(its.recorded.begin(), its.recorded.end(), IsSilent);
  const auto heard = static_cast<size_t>(its.recorded.end() - start);
  return its.isPlayed && heard >= its.expected.size() && its.digits.size() >= 4;
}

// What is wrong with a quiet call that has had time for all of its sound; empty when nothing is.
inline std::string FaultOf(const SChannel& its) {
  const std::string sound = FaultOf(its.recorded, its.expected, true);
  if (!sound.empty()) {
    return "what was heard " + sound;
  }
  const std::string sent = SCallRules(its.number).Digits();
  if (its.digits != sent) {
    return "digits " + its.digits + " were heard, sent were " + sent;
  }
  return its.isPlayed ? "" : "the play did not end";
}

}  // namespace soak
