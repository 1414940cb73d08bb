// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/report.h"

#include <gtest/gtest.h>

#include "in_world.h"
#include "platform/event.h"
#include "platform/thread.h"

namespace zelk::sim {

// Not inlined and not hidden, so that its name can stand in a report.
__attribute__((noinline, visibility("default"))) void WaitInAFunctionOfThisName(CEvent& event) {
  event.Wait();
  asm volatile("");
}

namespace {

TEST(Report, ShowsTheStackOfEveryTask) {
  for (const ECarrier carrier : {kDefaultCarrier, ECarrier::kThreads}) {
    CWorld world({.carrier = carrier});
    CEvent never;
    const SOutcome outcome = world.Run([&] {
      CThread other;
      other.Start("other", [&] { WaitInAFunctionOfThisName(never); });
      never.Wait();
    });
    EXPECT_EQ(outcome.verdict, EVerdict::kDeadlock);
    const size_t other = outcome.report.find("task 2 'other' waits for event");
    ASSERT_NE(other, std::string::npos) << outcome.report;
    EXPECT_NE(outcome.report.find("WaitInAFunctionOfThisName", other), std::string::npos) << outcome.report;
    EXPECT_NE(outcome.report.find("without an end"), std::string::npos) << outcome.report;
  }
}

TEST(Report, SaysWhatATaskWaitsForAndHowLong) {
  STask sleeper;
  sleeper.number = 4;
  sleeper.name = "sleeper";
  sleeper.wait = {EWaitFor::kTime, nullptr, 900, 0};
  sleeper.waitsSinceUs = 100;
  STask runner;
  runner.number = 5;
  runner.name = "runner";
  EXPECT_EQ(DescribeTasks("why", {&sleeper, &runner}, 300),
            "why (at 300 us)\n"
            "task 4 'sleeper' waits for its time, for 200 us, at most 600 more\n"
            "task 5 'runner' can run\n");
}

}  // namespace
}  // namespace zelk::sim
