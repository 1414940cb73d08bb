// SPDX-License-Identifier: GPL-2.0-only
#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "native_thread.h"
#include "platform/event.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

constexpr uint32_t kGenerousJoinMs = 10'000;

TEST(Thread, RunsItsBodyOnAnotherThread) {
  std::thread::id runner;
  CThread thread;
  ASSERT_TRUE(thread.Start("test", [&runner] { runner = std::this_thread::get_id(); }));
  EXPECT_TRUE(thread.IsStarted());
  ASSERT_TRUE(thread.JoinFor(kGenerousJoinMs));
  EXPECT_NE(runner, std::this_thread::get_id());
  EXPECT_NE(runner, std::thread::id());
}

TEST(Thread, AJoinWithoutAThreadSucceeds) {
  CThread thread;
  EXPECT_FALSE(thread.IsStarted());
  EXPECT_TRUE(thread.JoinFor(0));
}

TEST(Thread, AJoinForgetsTheThreadSoThatItCanBeStartedAgain) {
  int runs = 0;
  CThread thread;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(thread.Start("test", [&runs] { ++runs; }));
    ASSERT_TRUE(thread.JoinFor(kGenerousJoinMs));
    EXPECT_FALSE(thread.IsStarted());
  }
  EXPECT_EQ(runs, 3);
}

TEST(Thread, ASecondStartIsRefusedWhileTheFirstIsNotJoined) {
  CThread thread;
  ASSERT_TRUE(thread.Start("test", [] {}));
  EXPECT_FALSE(thread.Start("test", [] {}));
  EXPECT_TRUE(thread.JoinFor(kGenerousJoinMs));
}

TEST(Thread, AnEmptyBodyIsRefused) {
  CThread thread;
  EXPECT_FALSE(thread.Start("test", nullptr));
  EXPECT_FALSE(thread.IsStarted());
}

TEST(Thread, AJoinThatRunsOutLeavesTheThreadToEndByItself) {
  struct SShared {
    CEvent go;
    CEvent ended;
  };
  const auto shared = std::make_shared<SShared>();
  {
    CThread thread;
    ASSERT_TRUE(thread.Start("test", [shared] {
      shared->go.Wait();
      shared->ended.Set();
    }));
    EXPECT_FALSE(thread.JoinFor(5));
    EXPECT_FALSE(thread.IsStarted());
    EXPECT_TRUE(thread.JoinFor(0));
  }
  shared->go.Set();
  EXPECT_TRUE(shared->ended.WaitFor(kGenerousJoinMs));
}

TEST(Thread, WhatTheBodyCapturedIsGoneAfterTheJoin) {
  auto owned = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = owned;
  CThread thread;
  ASSERT_TRUE(thread.Start("test", [kept = std::move(owned)] { ++*kept; }));
  ASSERT_TRUE(thread.JoinFor(kGenerousJoinMs));
  EXPECT_TRUE(watched.expired());
}

TEST(Thread, TheDestructorWaitsForTheBody) {
  std::atomic<bool> done{false};
  CEvent go;
  {
    CThread thread;
    ASSERT_TRUE(thread.Start("test", [&] {
      go.Wait();
      done = true;
    }));
    go.Set();
  }
  EXPECT_TRUE(done);
}

TEST(Thread, AJoinFromTheThreadItselfDoesNotWait) {
  struct SShared {
    CThread thread;
    CEvent started;
    CEvent joined;
    bool result = true;
  };
  SShared shared;
  ASSERT_TRUE(shared.thread.Start("test", [&shared] {
    shared.started.Wait();
    shared.result = shared.thread.JoinFor(kGenerousJoinMs);
    shared.joined.Set();
  }));
  shared.started.Set();
  ASSERT_TRUE(shared.joined.WaitFor(kGenerousJoinMs));
  EXPECT_FALSE(shared.result);
}

TEST(Thread, ItsNameIsShownByTheSystemCutTo15Characters) {
  for (const auto& [given, shown] : {std::pair{"a name longer than fifteen characters", "a name longer t"},
                                     {"fifteen letters", "fifteen letters"},
                                     {"short", "short"}}) {
    std::optional<std::string> name;
    CThread thread;
    ASSERT_TRUE(thread.Start(given, [&name] { name = OwnThreadName(); }));
    ASSERT_TRUE(thread.JoinFor(kGenerousJoinMs));
    if (!name.has_value()) {
      GTEST_SKIP() << "this system keeps no names of threads";
    }
    EXPECT_EQ(*name, shown);
  }
}

TEST(Thread, ProAudioIsRaisedAndNormalIsNot) {
  if (!ThreadsMayBeRaised()) {
    GTEST_SKIP() << "the system lets no thread of this process be raised";
  }
  for (const EThreadPriority priority : {EThreadPriority::kProAudio, EThreadPriority::kNormal}) {
    bool raised = false;
    CThread thread;
    ASSERT_TRUE(thread.Start(
        "test", [&raised] { raised = OwnThreadIsRaised(); }, priority));
    ASSERT_TRUE(thread.JoinFor(kGenerousJoinMs));
    EXPECT_EQ(raised, priority == EThreadPriority::kProAudio);
  }
}

TEST(Thread, AStartWithoutMemoryIsRefused) {
  bool ran = false;
  const std::function<void()> body = [&ran] { ran = true; };
  CThread thread;
  bool started = false;
  const uint32_t failures =
      support::ForEachFailingAllocation([&] { started = thread.Start("a name longer than fifteen characters", body); },
                                        [&](bool failed) {
                                          EXPECT_EQ(started, !failed);
                                          EXPECT_EQ(thread.IsStarted(), !failed);
                                        });
  EXPECT_GE(failures, 2U);
  EXPECT_TRUE(thread.JoinFor(kGenerousJoinMs));
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace zelk
