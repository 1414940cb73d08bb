#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "platform/event.h"

namespace zelk {
namespace {

constexpr uint32_t kGenerousMs = 10'000;

TEST(Thread, RunsItsBodyOnAnotherThread) {
  std::thread::id runner;
  CThread thread;
  ASSERT_TRUE(thread.Start("test", [&runner] { runner = std::this_thread::get_id(); }));
  EXPECT_TRUE(thread.IsStarted());
  ASSERT_TRUE(thread.JoinFor(kGenerousMs));
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
    ASSERT_TRUE(thread.JoinFor(kGenerousMs));
    EXPECT_FALSE(thread.IsStarted());
  }
  EXPECT_EQ(runs, 3);
}

TEST(Thread, ASecondStartIsRefusedWhileTheFirstIsNotJoined) {
  CThread thread;
  ASSERT_TRUE(thread.Start("test", [] {}));
  EXPECT_FALSE(thread.Start("test", [] {}));
  EXPECT_TRUE(thread.JoinFor(kGenerousMs));
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
  EXPECT_TRUE(shared->ended.WaitFor(kGenerousMs));
}

TEST(Thread, WhatTheBodyCapturedIsGoneAfterTheJoin) {
  auto owned = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = owned;
  CThread thread;
  ASSERT_TRUE(thread.Start("test", [kept = std::move(owned)] { ++*kept; }));
  ASSERT_TRUE(thread.JoinFor(kGenerousMs));
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
    shared.result = shared.thread.JoinFor(kGenerousMs);
    shared.joined.Set();
  }));
  shared.started.Set();
  ASSERT_TRUE(shared.joined.WaitFor(kGenerousMs));
  EXPECT_FALSE(shared.result);
}

TEST(Thread, ALongNameIsCutAndProAudioNeverFailsTheStart) {
  CThread thread;
  bool ran = false;
  ASSERT_TRUE(thread.Start(
      "a name longer than fifteen characters", [&ran] { ran = true; }, EThreadPriority::kProAudio));
  ASSERT_TRUE(thread.JoinFor(kGenerousMs));
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace zelk
