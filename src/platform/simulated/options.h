// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk::sim {

// How the next task is chosen, among those that can run.
enum class EPolicy {
  kRandom,      // any of them, now and then; the same one again in between
  kPriorities,  // the one of the highest priority; priorities are drawn, and a few times one that runs falls to the
                // lowest
  kInOrder,     // the same one until it waits, then in turn: what a world without chance would do
};

// What tasks run on; a run is the same on either.
enum class ECarrier { kFibers, kThreads };

// The sanitizers lose track of stacks that change under a thread.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr ECarrier kDefaultCarrier = ECarrier::kThreads;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr ECarrier kDefaultCarrier = ECarrier::kThreads;
#else
constexpr ECarrier kDefaultCarrier = ECarrier::kFibers;
#endif
#else
constexpr ECarrier kDefaultCarrier = ECarrier::kFibers;
#endif

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerSecond = 1'000'000;

// Everything that a run depends on, besides the code.
struct SWorldOptions {
  uint64_t seed = 1;
  EPolicy policy = EPolicy::kRandom;
  ECarrier carrier = kDefaultCarrier;

  uint32_t switchPerMillion = 100'000;  // kRandom: how often a task that could go on has to let another one go on
  uint32_t changePoints = 3;            // kPriorities: so many falls
  uint64_t changeSpan = 20'000;         // among so many first steps
  uint32_t stallPerMillion = 0;         // how often a task that could go on stands still for a while, as under load
  int64_t mostStallUs = 50 * kUsPerMs;
  int64_t stepUs = 1;  // what a step takes; a task that polls the clock gets somewhere

  bool watchesLocks = false;  // locks that are taken in two orders end the run, whether anybody waits or not

  // The run ends with a verdict beyond these.
  uint64_t mostSteps = 4'000'000'000;
  int64_t mostUs = 30LL * 24 * 3600 * kUsPerSecond;
  int64_t mostMutexWaitUs = 120 * kUsPerSecond;  // in one wait for a mutex
  int64_t mostAfterMainUs = 60 * kUsPerSecond;   // by tasks that are left when the first one has ended

  int64_t startUnixMs = 1'780'000'000'000;  // wall clock at time 0
  uint32_t startTickMs = 0xFFFF0000U;       // TickMs at time 0; this one wraps after 65 s
};

}  // namespace zelk::sim
