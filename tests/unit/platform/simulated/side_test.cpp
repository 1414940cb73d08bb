// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/side.h"

#include <memory>
#include <vector>

#include "in_world.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/allocation_probe.h"

namespace zelk::sim {
namespace {

bool IsInLibrary() {
  return CWorld::Current()->Scheduler().IsInLibrary();
}

TEST(Side, IsTheLibrarysInExportsAndNotInCallbacksOrTheSystem) {
  CWorld world({});
  RunToEnd(world, [&] {
    EXPECT_FALSE(IsInLibrary());
    const CSide inExport(true);
    EXPECT_TRUE(IsInLibrary());
    {
      const CSide inCallback(false);
      EXPECT_FALSE(IsInLibrary());
      const CSide inExportAgain(true);
      EXPECT_TRUE(IsInLibrary());
    }
    EXPECT_TRUE(IsInLibrary());
    {
      const CInSystem inSystem(CScheduler::Current());
      EXPECT_FALSE(IsInLibrary());
    }
    EXPECT_TRUE(IsInLibrary());
  });
}

TEST(Side, IsATasksOwnWhoeverRunsMeanwhile) {
  CWorld world({});
  std::vector<bool> sides;
  RunToEnd(world, [&] {
    CThread library;
    CThread other;
    library.Start("zelk-log", [&] { sides.push_back(IsInLibrary()); });
    other.Start("caller", [&] { sides.push_back(IsInLibrary()); });
    const CSide inExport(true);
    SleepMs(10);
    EXPECT_TRUE(IsInLibrary());
    EXPECT_TRUE(library.JoinFor(100));
    EXPECT_TRUE(other.JoinFor(100));
  });
  ASSERT_EQ(sides.size(), 2U);
  EXPECT_NE(sides[0], sides[1]);
}

TEST(Side, AnActIsOnNone) {
  CWorld world({});
  bool isAct = true;
  RunToEnd(world, [&] {
    const CSide inExport(true);
    world.After(kUsPerMs, [&] { isAct = IsInLibrary(); });
    SleepMs(10);
  });
  EXPECT_FALSE(isAct);
}

TEST(Side, TheAllocationsThatAreToFailAreTheLibrarysOwn) {
  CWorld world({});
  support::SetAllocationJudge([] {
    CWorld* const here = CWorld::Current();
    return here != nullptr && IsInLibrary() && here->Scarcity().IsAllocationToFail();
  });
  RunToEnd(world, [&] {
    world.Scarcity().failingAllocation = 2;
    world.Scarcity().failingInARow = 2;
    std::vector<bool> failed;
    auto allocate = [&failed] {
      bool hasFailed = false;
      try {
        const auto number = std::make_unique<std::vector<int>>();
        hasFailed = number == nullptr;
      } catch (const std::bad_alloc&) {
        hasFailed = true;
      }
      const CSide inTest(false);
      failed.push_back(hasFailed);
    };
    allocate();  // the application's
    const CSide inExport(true);
    for (int i = 0; i < 4; ++i) {
      allocate();
    }
    const CSide inTest(false);
    EXPECT_EQ(failed, (std::vector<bool>{false, false, true, true, false}));
  });
  support::SetAllocationJudge(nullptr);
}

}  // namespace
}  // namespace zelk::sim
