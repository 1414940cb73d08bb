// SPDX-License-Identifier: GPL-2.0-only

// What a thread asks of Linux when it is to be near real time. The program's own functions take the place of the system
// library's, note what is asked and refuse it when a test says so.
#ifdef __linux__

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/thread.h"

namespace {

struct SAsked {
  bool fifoIsRefused = false;
  bool niceIsRefused = false;
  std::vector<std::string> calls;
};

SAsked* asked = nullptr;  // of the test that runs; it joins its thread before it looks

}  // namespace

extern "C" int pthread_setschedparam(pthread_t thread, int policy, const sched_param* parameters) noexcept {
  if (asked != nullptr) {
    EXPECT_NE(pthread_equal(thread, pthread_self()), 0);
    asked->calls.push_back(std::string(policy == SCHED_FIFO ? "fifo " : "other policy ") +
                           std::to_string(parameters->sched_priority));
    return asked->fifoIsRefused ? EPERM : 0;
  }
  return static_cast<int>(syscall(SYS_sched_setscheduler, 0, policy, parameters)) == 0 ? 0 : errno;
}

extern "C" int setpriority(__priority_which_t which, id_t who, int value) noexcept {
  if (asked != nullptr) {
    EXPECT_EQ(which, PRIO_PROCESS);
    EXPECT_EQ(who, static_cast<id_t>(syscall(SYS_gettid))) << "this thread alone, not the process";
    asked->calls.push_back("nice " + std::to_string(value));
    return asked->niceIsRefused ? -1 : 0;
  }
  return static_cast<int>(syscall(SYS_setpriority, which, who, value));
}

namespace zelk {
namespace {

using Calls = std::vector<std::string>;

class ThreadPriority : public testing::Test {
 protected:
  void SetUp() override { asked = &system; }
  void TearDown() override { asked = nullptr; }

  Calls CallsOf(EThreadPriority priority) {
    CThread thread;
    bool ran = false;
    EXPECT_TRUE(thread.Start(
        "test", [&ran] { ran = true; }, priority));
    EXPECT_TRUE(thread.JoinFor(10'000));
    EXPECT_TRUE(ran);
    return system.calls;
  }

  SAsked system;
};

TEST_F(ThreadPriority, ANormalThreadAsksForNothing) {
  EXPECT_EQ(CallsOf(EThreadPriority::kNormal), Calls{});
}

TEST_F(ThreadPriority, ProAudioAsksForRealTime) {
  EXPECT_EQ(CallsOf(EThreadPriority::kProAudio), (Calls{"fifo 1"}));
}

TEST_F(ThreadPriority, WhereRealTimeIsRefusedItAsksForABetterNiceValue) {
  system.fifoIsRefused = true;
  EXPECT_EQ(CallsOf(EThreadPriority::kProAudio), (Calls{"fifo 1", "nice -11"}));
}

TEST_F(ThreadPriority, WhereBothAreRefusedItRunsAllTheSame) {
  system.fifoIsRefused = true;
  system.niceIsRefused = true;
  EXPECT_EQ(CallsOf(EThreadPriority::kProAudio), (Calls{"fifo 1", "nice -11"}));
}

// Read back from the kernel: the slice of a thread of the usual policy.
TEST_F(ThreadPriority, WhereRealTimeIsRefusedItHasShortSlices) {
  struct SAttributes {
    uint32_t size, policy;
    uint64_t flags;
    int32_t nice;
    uint32_t priority;
    uint64_t runtimeNs, deadlineNs, periodNs;
  };
  const auto sliceNs = [] {
    SAttributes attributes{};
    EXPECT_EQ(syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0), 0);
    return attributes.runtimeNs;
  };
  if (sliceNs() == 0)
    GTEST_SKIP() << "this kernel has no slice a thread";
  system.fifoIsRefused = true;
  uint64_t own = 0;
  CThread thread;
  EXPECT_TRUE(thread.Start(
      "test", [&] { own = sliceNs(); }, EThreadPriority::kProAudio));
  EXPECT_TRUE(thread.JoinFor(10'000));
  EXPECT_EQ(own, 100'000U);
  EXPECT_GT(sliceNs(), own);
}

}  // namespace
}  // namespace zelk

#endif
