// SPDX-License-Identifier: GPL-2.0-only
#include "world/checks.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "world/apart.h"
#include "zelk/ZelkApi.h"

namespace world {
namespace {

// The failures of some work with checks in a world of its own.
std::string FailuresOf(const std::function<void(CChecks&)>& work) {
  const SApart apart = DoApart([&work] {
    zelk::sim::CWorld world({.seed = 1});
    CChecks checks(world, SBounds());
    checks.SetChannels(30, false);
    world.Run([&] { work(checks); });
    std::string text;
    for (const std::string& failure : checks.Failures()) {
      text += failure + "\n";
    }
    return text;
  });
  return apart.isDone ? apart.result : "ended badly: " + apart.result;
}

TEST(Checks, AnEventThatFitsIsNone) {
  EXPECT_EQ("", FailuresOf([](CChecks& checks) {
              checks.OnEvent({0, 3, ZELK_EVENT_INCOMING_CALL, 0});
              checks.OnEvent({0, 3, ZELK_EVENT_DISCONNECTED, 16});
            }));
}

TEST(Checks, AnEventOfAnotherChannelsCallIsFound) {
  const std::string failures = FailuresOf([](CChecks& checks) {
    checks.OnEvent({0, 3, ZELK_EVENT_INCOMING_CALL, 0});
    checks.OnEvent({0, 4, ZELK_EVENT_DISCONNECTED, 16});
  });
  EXPECT_NE(std::string::npos, failures.find("channel    4 DISCONNECTED 16 came where the call may be free"))
      << failures;
}

TEST(Checks, AnEventOfNoChannelIsFound) {
  EXPECT_NE("", FailuresOf([](CChecks& checks) { checks.OnEvent({0, 30, ZELK_EVENT_DISCONNECTED, 16}); }));
  EXPECT_NE("", FailuresOf([](CChecks& checks) { checks.OnEvent({0, -1, ZELK_EVENT_DISCONNECTED, 16}); }));
}

TEST(Checks, AnExportThatTakesTooLongIsFound) {
  const auto takes = [](int64_t ms) {
    return FailuresOf([ms](CChecks& checks) {
      checks.Timed("Dial", 2, SBounds().CallMs(), [ms] {
        zelk::SleepMs(static_cast<uint32_t>(ms));
        return true;
      });
    });
  };
  EXPECT_EQ("", takes(SBounds().CallMs() - 1));
  EXPECT_NE(std::string::npos, takes(SBounds().CallMs() + 1).find("Dial of channel 2 took"));
}

}  // namespace
}  // namespace world
