// SPDX-License-Identifier: GPL-2.0-only

// Tests of the platform's contract, as they stand, as one task of a simulated world.
#include <gtest/gtest.h>

#include <cstdio>

#include "platform/simulated/world.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  zelk::sim::CWorld world({});
  int result = 1;
  const zelk::sim::SOutcome outcome = world.Run([&result] { result = RUN_ALL_TESTS(); });
  if (outcome.verdict != zelk::sim::EVerdict::kEnded) {
    std::fprintf(stderr, "[  FAILED  ] %s", outcome.report.c_str());
    return 1;
  }
  return result;
}
