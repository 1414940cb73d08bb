// SPDX-License-Identifier: GPL-2.0-only
#include "world/crew.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <csignal>

namespace world {
namespace {

TEST(Crew, EachWorkerIsAProcessOfItsOwnAndItsResultComesBack) {
  const auto results = RunCrew(3, [](size_t worker, ICrewStop&) {
    return std::to_string(worker) + " " + std::to_string(getpid() == getppid());
  });
  EXPECT_EQ(results, (std::vector<std::string>{"0 0", "1 0", "2 0"}));
}

// The second one can end by the first one's word alone.
TEST(Crew, AllSeeTheStopOfOne) {
  const auto results = RunCrew(2, [](size_t worker, ICrewStop& stop) -> std::string {
    if (worker == 0) {
      stop.Set();
      return "set";
    }
    while (!stop.IsSet()) {
      sched_yield();
    }
    return "seen";
  });
  EXPECT_EQ(results, (std::vector<std::string>{"set", "seen"}));
}

TEST(Crew, OneThatEndsBadlyHasNoResultAndStopsTheOthers) {
  const auto results = RunCrew(2, [](size_t worker, ICrewStop& stop) -> std::string {
    if (worker == 0) {
      raise(SIGKILL);
    }
    while (!stop.IsSet()) {
      sched_yield();
    }
    return "seen";
  });
  EXPECT_EQ(results, (std::vector<std::string>{"", "seen"}));
}

}  // namespace
}  // namespace world
