// SPDX-License-Identifier: GPL-2.0-only
#include "world/library_world.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/clock.h"
#include "platform/simulated/files.h"
#include "platform/simulated/network.h"
#include "platform/simulated/world.h"
#include "zelk/ZelkApi.h"

namespace zelk::sim {
namespace {

struct SRun {
  SOutcome outcome;
  std::string log;
  size_t openSockets;
};

// Twice up and down, with nothing on the network.
SRun RunWithoutCards(const SWorldOptions& options) {
  CWorld world(options);
  const SOutcome outcome = RunLibrary(world, [] {
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(ZELK_Init());
      EXPECT_EQ(ZELK_GetChannelCount(), 0);
      SleepMs(1000);
      ZELK_Shutdown();
    }
  });
  return {outcome, world.Files().Read("/world/libZelkApi.log").value_or(""), world.Network().OpenSockets()};
}

TEST(LibraryInAWorld, StartsAndShutsDownWithoutACard) {
  const SRun run = RunWithoutCards({});
  EXPECT_EQ(run.outcome.verdict, EVerdict::kEnded) << run.outcome.report;
  EXPECT_EQ(run.openSockets, 0U);
}

TEST(LibraryInAWorld, DoesTheSameTwiceFromOneSeed) {
  const SRun one = RunWithoutCards({.seed = 7});
  const SRun other = RunWithoutCards({.seed = 7});
  EXPECT_EQ(one.outcome.hash, other.outcome.hash);
  EXPECT_EQ(one.log, other.log);
  EXPECT_NE(one.outcome.hash, RunWithoutCards({.seed = 8}).outcome.hash);
}

}  // namespace
}  // namespace zelk::sim
